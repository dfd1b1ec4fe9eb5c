// The process's own XML printers, in place of libixml's. libupnp turns its SOAP
// answers and other documents into text with ixmlPrintNode and
// ixmlPrintDocument; libixml's versions escape one character at a time and
// grow their buffer by a few bytes per append, which dominated Browse. The
// executable defines and exports both names (link the dmsd_ixml target), so
// the dynamic linker binds libupnp's calls here.
//
// The text is byte for byte what libixml prints, quirks included: "\r\n" after
// end tags unless text follows, a sibling chain that stops after text, CDATA or
// a processing instruction, top-level nodes printed without their siblings,
// and <, >, &, ' and " escaped in text and attribute values (not in CDATA).
//
// Both functions are reentrant and thread-safe (they only read the tree; the
// caller keeps it unchanged meanwhile). The result is malloc'd: the caller
// releases it with ixmlFreeDOMString. Null for a null node, for empty output
// and when memory runs out.
#pragma once

#include <upnp/ixml.h>

extern "C" {
DOMString ixmlPrintNode(IXML_Node* node);
DOMString ixmlPrintDocument(IXML_Document* doc);
}
