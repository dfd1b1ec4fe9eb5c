// Prints an ixml tree into one buffer that doubles as it fills. Text is
// escaped a chunk at a time into room reserved for the worst case, so the byte
// loop has no checks. The walk follows libixml's printer rule for rule, so the
// text is the same.
#include "stack/ixml_print.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr char kDeclaration[] = "<?xml version=\"1.0\"?>\r\n";
constexpr size_t kFirstCapacity = 4096;

// Escaped characters and their entities. Entities are copied as 8 bytes and
// the output advanced by their length, so no copy has a variable size.
struct Entity {
  char ch;
  char text[8];
  size_t size;
};
constexpr Entity kEntities[] = {
    {'<', "&lt;", 4}, {'>', "&gt;", 4}, {'&', "&amp;", 5}, {'\'', "&apos;", 6}, {'"', "&quot;", 6},
};
constexpr size_t kEntityCopy = sizeof(Entity::text);
constexpr size_t kLongestEntity = 6;

constexpr bool EntitySizesHold() {
  for (const Entity& entity : kEntities)
    if (std::char_traits<char>::length(entity.text) != entity.size || entity.size > kLongestEntity)
      return false;
  return true;
}
static_assert(EntitySizesHold());
// Text is escaped in chunks of this many bytes, with room for the worst case.
constexpr size_t kEscapeChunk = 1024;

// For each byte, 1 + its index in kEntities, or 0 when it is copied as is.
struct EntityIndex {
  unsigned char of[256];
};
constexpr EntityIndex MakeEntityIndex() {
  EntityIndex index{};
  for (size_t i = 0; i < std::size(kEntities); ++i)
    index.of[static_cast<unsigned char>(kEntities[i].ch)] = static_cast<unsigned char>(i + 1);
  return index;
}
constexpr EntityIndex kEntityIndex = MakeEntityIndex();

// A malloc'd text that doubles as it fills. After a failed allocation it
// ignores further appends and releases null.
class PrintBuffer {
 public:
  PrintBuffer() = default;
  PrintBuffer(const PrintBuffer&) = delete;
  PrintBuffer& operator=(const PrintBuffer&) = delete;
  ~PrintBuffer() { free(data_); }

  void append(std::string_view text) {
    if (!reserve(text.size())) return;
    memcpy(data_ + size_, text.data(), text.size());
    size_ += text.size();
  }

  void appendText(const char* text) {
    if (text) append(text);
  }

  void appendEscaped(const char* text) {
    if (!text) return;
    for (size_t left = strlen(text); left > 0;) {
      size_t chunk = left < kEscapeChunk ? left : kEscapeChunk;
      if (!reserve(chunk * kLongestEntity + kEntityCopy)) return;
      char* out = data_ + size_;
      for (const char* end = text + chunk; text != end; ++text) {
        unsigned char index = kEntityIndex.of[static_cast<unsigned char>(*text)];
        if (index == 0) {
          *out++ = *text;
        } else {
          const Entity& entity = kEntities[index - 1];
          memcpy(out, entity.text, kEntityCopy);
          out += entity.size;
        }
      }
      size_ = out - data_;
      left -= chunk;
    }
  }

  // The terminated text for the caller to free; null when empty or failed.
  char* release() {
    if (failed_ || size_ == 0 || !reserve(1)) return nullptr;
    data_[size_] = '\0';
    char* text = data_;
    data_ = nullptr;
    return text;
  }

 private:
  bool reserve(size_t more) {
    if (failed_) return false;
    if (capacity_ - size_ >= more) return true;
    size_t capacity = capacity_ ? capacity_ * 2 : kFirstCapacity;
    while (capacity - size_ < more && capacity <= SIZE_MAX / 2) capacity *= 2;
    if (capacity - size_ < more) return fail();
    char* grown = static_cast<char*>(realloc(data_, capacity));
    if (!grown) return fail();
    data_ = grown;
    capacity_ = capacity;
    return true;
  }

  bool fail() {
    failed_ = true;
    return false;
  }

  char* data_ = nullptr;
  size_t size_ = 0;
  size_t capacity_ = 0;
  bool failed_ = false;
};

bool IsType(IXML_Node* node, IXML_NODE_TYPE type) {
  return node && ixmlNode_getNodeType(node) == type;
}

void PrintAttribute(PrintBuffer& out, IXML_Node* attribute) {
  out.appendText(ixmlNode_getNodeName(attribute));
  out.append("=\"");
  out.appendEscaped(ixmlNode_getNodeValue(attribute));
  out.append("\"");
}

// An element's attributes: a chain of attribute nodes, blank-separated.
void PrintAttributes(PrintBuffer& out, IXML_Node* attribute) {
  for (; attribute; attribute = ixmlNode_getNextSibling(attribute)) {
    PrintAttribute(out, attribute);
    if (ixmlNode_getNextSibling(attribute)) out.append(" ");
  }
}

// A node that ends its chain: nothing after it among its siblings is printed.
void PrintLeaf(PrintBuffer& out, IXML_Node* node) {
  switch (ixmlNode_getNodeType(node)) {
    case eTEXT_NODE:
      out.appendEscaped(ixmlNode_getNodeValue(node));
      break;
    case eCDATA_SECTION_NODE:
      out.append("<![CDATA[");
      out.appendText(ixmlNode_getNodeValue(node));
      out.append("]]>");
      break;
    case ePROCESSING_INSTRUCTION_NODE:
      out.append("<?");
      out.appendText(ixmlNode_getNodeName(node));
      out.append(" ");
      out.appendEscaped(ixmlNode_getNodeValue(node));
      out.append("?>\n");
      break;
    default:  // comments and the rest are not printed
      break;
  }
}

// An element whose end tag is still to come: its name, what follows the end
// tag, and the sibling the walk goes on with after it.
struct OpenElement {
  const char* name;
  std::string_view close;
  IXML_Node* next;
};

// A node and (with `siblings`) its following siblings as libixml prints
// children: elements and attributes continue the chain, a document continues
// with its own children, anything else ends it. Open elements are kept on a
// stack of our own, so a deep tree costs heap, not call stack.
void PrintChain(PrintBuffer& out, IXML_Node* node, bool siblings) {
  std::vector<OpenElement> open;
  for (;;) {
    while (node) {
      IXML_Node* next = siblings || !open.empty() ? ixmlNode_getNextSibling(node) : nullptr;
      switch (ixmlNode_getNodeType(node)) {
        case eELEMENT_NODE: {
          const char* name = ixmlNode_getNodeName(node);
          out.append("<");
          out.appendText(name);
          // The public API has no getter for the first attribute without
          // building a map, so it is read directly.
          if (node->firstAttr) {
            out.append(" ");
            PrintAttributes(out, node->firstAttr);
          }
          IXML_Node* child = ixmlNode_getFirstChild(node);
          out.append(IsType(child, eELEMENT_NODE) ? ">\r\n" : ">");
          open.push_back({name, IsType(next, eTEXT_NODE) ? ">" : ">\r\n", next});
          next = child;
          break;
        }
        case eATTRIBUTE_NODE:
          PrintAttribute(out, node);
          if (next) out.append(" ");
          break;
        case eDOCUMENT_NODE:
          next = ixmlNode_getFirstChild(node);
          break;
        default:
          PrintLeaf(out, node);
          next = nullptr;
          break;
      }
      node = next;
    }
    if (open.empty()) return;
    out.append("</");
    out.appendText(open.back().name);
    out.append(open.back().close);
    node = open.back().next;
    open.pop_back();
  }
}

// The node asked for, without its siblings (an element or attribute), or the
// chain it ends or begins (anything else).
void PrintTop(PrintBuffer& out, IXML_Node* node) {
  if (IsType(node, eATTRIBUTE_NODE)) return PrintAttribute(out, node);
  PrintChain(out, node, !IsType(node, eELEMENT_NODE));
}

}  // namespace

extern "C" DOMString ixmlPrintNode(IXML_Node* node) {
  if (!node) return nullptr;
  PrintBuffer out;
  PrintTop(out, node);
  return out.release();
}

extern "C" DOMString ixmlPrintDocument(IXML_Document* doc) {
  if (!doc) return nullptr;
  PrintBuffer out;
  out.append(kDeclaration);
  PrintTop(out, &doc->n);
  return out.release();
}
