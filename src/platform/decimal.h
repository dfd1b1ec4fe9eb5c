// Decimal text without printf, for writers that emit numbers on hot paths
// (every profiled file's duration, every Browse page's sizes and dates).
#pragma once

#include <string>

// Appends `value` in decimal, zero-padded to at least `width` digits (after
// the sign). May throw std::bad_alloc as std::string does.
inline void appendDecimal(std::string& text, long long value, int width = 1) {
  char digits[24];
  int n = 0;
  unsigned long long magnitude = value < 0 ? 0ULL - static_cast<unsigned long long>(value)
                                           : static_cast<unsigned long long>(value);
  do {
    digits[sizeof(digits) - 1 - n++] = static_cast<char>('0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude > 0);
  while (n < width && n < static_cast<int>(sizeof(digits)) - 1)
    digits[sizeof(digits) - 1 - n++] = '0';
  if (value < 0) digits[sizeof(digits) - 1 - n++] = '-';
  text.append(digits + sizeof(digits) - n, static_cast<size_t>(n));
}
