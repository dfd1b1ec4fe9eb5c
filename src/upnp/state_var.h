// The evented state variables: their current values and the events sent when
// one changes.
//
// All calls are thread-safe. Values are handed out as copies, so a reader never
// sees a text that a concurrent set frees. Sets are serialised together with
// their events, so subscribers receive events in the order the values changed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

inline constexpr char kCdsServiceId[] = "urn:upnp-org:serviceId:ContentDirectory";
inline constexpr char kCmsServiceId[] = "urn:upnp-org:serviceId:ConnectionManager";
inline constexpr char kMsrServiceId[] = "urn:microsoft.com:serviceId:X_MS_MediaReceiverRegistrar";

// Gives every variable its initial value.
void dlnaInitVarValue();

// Replaces a value and sends an event carrying it; unknown services or
// variables (and a null value) are ignored.
void dlnaSetVarValue(const char* serviceId, const char* varName, const char* value);

// dlnaSetVarValue with the decimal text of `number`.
void dlnaSetVarValueNum(const char* serviceId, const char* varName, int32_t number);

// A copy of the current value; nothing when the variable is unknown or unset.
std::optional<std::string> dlnaGetVarValue(const char* serviceId, const char* varName);

// The service's variables that have a value, as (name, value) copies in table
// order; empty for an unknown service or one without variables.
std::vector<std::pair<std::string, std::string>> dlnaGetServiceVars(const char* serviceId);

// Drops every value; dlnaGetVarValue then yields nothing until dlnaInitVarValue.
void dlnaFreeVarValue();

// Bumped by every dlnaInitVarValue and dlnaFreeVarValue, so a caller that
// caches what it wrote can tell that the table started over.
uint64_t dlnaVarTableGeneration();
