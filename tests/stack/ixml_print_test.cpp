// Our XML printers against libixml's own, reached past ours with RTLD_NEXT:
// every node of every document must print the same, and libupnp must bind to
// ours.
#include "stack/ixml_print.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <upnp/upnp.h>
#include <upnp/upnptools.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "platform/alloc.h"
#include "services/scpd.h"
#include "upnp/upnp_dms.h"

namespace {

using PrintNodeFn = DOMString (*)(IXML_Node*);
using PrintDocumentFn = DOMString (*)(IXML_Document*);
using Printed = std::optional<std::string>;

PrintNodeFn LibixmlPrintNode() {
  return reinterpret_cast<PrintNodeFn>(dlsym(RTLD_NEXT, "ixmlPrintNode"));
}
PrintDocumentFn LibixmlPrintDocument() {
  return reinterpret_cast<PrintDocumentFn>(dlsym(RTLD_NEXT, "ixmlPrintDocument"));
}

Printed Take(DOMString text) {
  if (!text) return std::nullopt;
  std::string copy = text;
  ixmlFreeDOMString(text);
  return copy;
}

// The node, its attributes and everything below it, in document order.
void Collect(IXML_Node* node, std::vector<IXML_Node*>& nodes) {
  for (; node; node = ixmlNode_getNextSibling(node)) {
    nodes.push_back(node);
    Collect(node->firstAttr, nodes);
    Collect(ixmlNode_getFirstChild(node), nodes);
  }
}

// Equal texts, or a failure showing where they part (the texts can be long).
testing::AssertionResult Same(const Printed& ours, const Printed& theirs) {
  if (ours == theirs) return testing::AssertionSuccess();
  if (!ours || !theirs)
    return testing::AssertionFailure() << (ours ? "libixml" : "ours") << " printed null";
  size_t at = std::mismatch(ours->begin(), ours->end(), theirs->begin(), theirs->end()).first -
              ours->begin();
  size_t from = at < 40 ? 0 : at - 40;
  return testing::AssertionFailure()
         << "differ at byte " << at << " of " << ours->size() << "/" << theirs->size()
         << ":\n ours:    " << testing::PrintToString(ours->substr(from, 80))
         << "\n libixml: " << testing::PrintToString(theirs->substr(from, 80));
}

void ExpectSameAsLibixml(IXML_Document* doc) {
  ASSERT_TRUE(doc);
  EXPECT_TRUE(Same(Take(ixmlPrintDocument(doc)), Take(LibixmlPrintDocument()(doc))));
  std::vector<IXML_Node*> nodes;
  Collect(&doc->n, nodes);
  for (IXML_Node* node : nodes)
    EXPECT_TRUE(Same(Take(ixmlPrintNode(node)), Take(LibixmlPrintNode()(node))))
        << "node " << ixmlNode_getNodeName(node);
}

void ExpectSameAsLibixml(const std::string& xml) {
  IXML_Document* doc = ixmlParseBuffer(xml.c_str());
  ASSERT_TRUE(doc) << xml;
  ExpectSameAsLibixml(doc);
  ixmlDocument_free(doc);
}

TEST(IxmlPrint, LibupnpBindsToOurPrinters) {
  ASSERT_TRUE(LibixmlPrintNode());
  ASSERT_TRUE(LibixmlPrintDocument());
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "ixmlPrintNode"), reinterpret_cast<void*>(&ixmlPrintNode));
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "ixmlPrintDocument"), reinterpret_cast<void*>(&ixmlPrintDocument));
  EXPECT_NE(reinterpret_cast<void*>(LibixmlPrintNode()), reinterpret_cast<void*>(&ixmlPrintNode));
}

TEST(IxmlPrint, HandWrittenDocumentsMatch) {
  const char* const documents[] = {
      "<a b=\"1 &amp; &lt; &gt; &quot; &apos;\" c='say \"hi\"' d=\"\" e='&amp;amp;'>t</a>",
      "<a><b/><c></c><d> </d></a>",
      "<a/>",
      "<s:a xmlns:s=\"urn:s\" xmlns=\"urn:d\"><s:b xmlns:t=\"urn:t\" t:x=\"1\"><c/></s:b>"
      "<t:c xmlns:t=\"urn:t2\"/></s:a>",
      "<a><![CDATA[ <&>'\" ]]></a>",
      "<a><![CDATA[x]]>after cdata<b/></a>",
      "<a>text<b/>tail<c>z</c></a>",
      "<a><b>1</b>t<c>2</c><d/></a>",
      "<a><b/><![CDATA[c]]><e/></a>",
      "<a>  <b> x </b>  </a>",
      "<a>\xc3\xa9\t\n\r &#65;&#x42; \xe2\x98\x83</a>",
      "<?xml version=\"1.0\" encoding=\"utf-8\"?><!-- c --><!DOCTYPE a><a><!--c--><b/></a>",
      "<a>one<!--c-->two</a>",
      "<a><?pi x<y?><b/></a>",
  };
  for (const char* xml : documents) {
    SCOPED_TRACE(xml);
    ExpectSameAsLibixml(xml);
  }
}

TEST(IxmlPrint, EmptyInputsMatch) {
  EXPECT_EQ(ixmlPrintNode(nullptr), nullptr);
  EXPECT_EQ(ixmlPrintDocument(nullptr), nullptr);
  IXML_Document* doc = ixmlDocument_createDocument();
  ASSERT_TRUE(doc);
  ExpectSameAsLibixml(doc);
  IXML_Node* empty = ixmlDocument_createTextNode(doc, "");
  EXPECT_TRUE(Same(Take(ixmlPrintNode(empty)), Take(LibixmlPrintNode()(empty))));
  ixmlNode_free(empty);
  ixmlDocument_free(doc);
}

}  // namespace

// A hostile control body can nest as deep as the parser lets it; printing
// such a tree must not grow the call stack with it: it is printed here on a
// thread with a gateway's small stack. (Built bottom-up: the parser itself is
// quadratic in the depth.)
TEST(IxmlPrint, DeepTreePrintsWithoutRecursion) {
  constexpr int kDepth = 10000;
  IXML_Document* doc = ixmlDocument_createDocument();
  ASSERT_TRUE(doc);
  IXML_Node* inner = ixmlDocument_createTextNode(doc, "x");
  for (int i = 0; i < kDepth; ++i) {
    IXML_Element* outer = ixmlDocument_createElement(doc, "a");
    ASSERT_TRUE(outer);
    ASSERT_EQ(ixmlNode_appendChild(&outer->n, inner), IXML_SUCCESS);
    inner = &outer->n;
  }
  ASSERT_EQ(ixmlNode_appendChild(&doc->n, inner), IXML_SUCCESS);
  struct Job {
    IXML_Document* doc;
    std::string text;
  } job{doc, {}};
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, 128 * 1024);
  pthread_t thread;
  auto print = [](void* arg) -> void* {
    auto* j = static_cast<Job*>(arg);
    DOMString printed = ixmlPrintDocument(j->doc);
    if (printed) j->text = printed;
    ixmlFreeDOMString(printed);
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attr, print, &job), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attr);
  // Every start tag but the innermost and every end tag is followed by "\r\n".
  const size_t tags = kDepth * strlen("<a></a>") + 2 * (kDepth - 1) + 2 * kDepth;
  EXPECT_EQ(job.text.size(), strlen("<?xml version=\"1.0\"?>\r\n") + tags + 1);
  ixmlDocument_free(doc);
}
