// XML printer benchmark: a Browse answer of 100 video items (about 93 KB of
// DIDL-Lite in the Result argument) built the way the daemon builds it, then
// printed by our ixmlPrintNode and by libixml's. Prints medians per print and
// per output byte.
#include <dlfcn.h>
#include <upnp/upnp.h>
#include <upnp/upnptools.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "stack/ixml_print.h"

namespace {

constexpr int kItems = 100;
constexpr int kRounds = 15;
constexpr int kPrintsPerRound = 50;

using Clock = std::chrono::steady_clock;
using PrintNodeFn = DOMString (*)(IXML_Node*);

std::string Item(int i) {
  const std::string n = std::to_string(i);
  return "<item id=\"0$4$" + n + "\" parentID=\"0$4\" restricted=\"1\"><dc:title>Holiday clip " +
         n + " &amp; friends - &quot;beach&quot; day &lt;HD&gt;</dc:title>" +
         "<upnp:class>object.item.videoItem</upnp:class><dc:date>2024-07-1" + n.substr(0, 1) +
         "T10:00:00</dc:date><upnp:genre>Unknown</upnp:genre>" +
         "<upnp:albumArtURI dlna:profileID=\"JPEG_TN\">http://192.168.1.1:49153/web/thumb/" + n +
         ".jpg</upnp:albumArtURI><res protocolInfo=\"http-get:*:video/mp4:DLNA.ORG_PN=" +
         "AVC_MP4_MP_SD_AAC_MULT5;DLNA.ORG_OP=01;DLNA.ORG_CI=0;DLNA.ORG_FLAGS=" +
         "01700000000000000000000000000000\" size=\"734003200\" duration=\"0:42:17.000\" " +
         "resolution=\"1280x720\" bitrate=\"289000\">http://192.168.1.1:49153/web/media/" + n +
         ".mp4</res><res protocolInfo=\"http-get:*:image/jpeg:DLNA.ORG_PN=JPEG_TN;" +
         "DLNA.ORG_CI=1\" resolution=\"160x90\">http://192.168.1.1:49153/web/thumb/" + n +
         ".jpg</res></item>";
}

std::string Didl() {
  std::string didl =
      "<DIDL-Lite xmlns=\"urn:schemas-upnp-org:metadata-1-0/DIDL-Lite/\" "
      "xmlns:dc=\"http://purl.org/dc/elements/1.1/\" "
      "xmlns:upnp=\"urn:schemas-upnp-org:metadata-1-0/upnp/\" "
      "xmlns:dlna=\"urn:schemas-dlna-org:metadata-1-0/\">";
  for (int i = 0; i < kItems; ++i) didl += Item(i);
  return didl + "</DIDL-Lite>";
}

IXML_Document* BrowseAnswer(const std::string& didl) {
  const char* service = "urn:schemas-upnp-org:service:ContentDirectory:1";
  IXML_Document* answer = nullptr;
  UpnpAddToActionResponse(&answer, "Browse", service, "Result", didl.c_str());
  UpnpAddToActionResponse(&answer, "Browse", service, "NumberReturned", "100");
  UpnpAddToActionResponse(&answer, "Browse", service, "TotalMatches", "1000");
  UpnpAddToActionResponse(&answer, "Browse", service, "UpdateID", "1");
  return answer;
}

// Median microseconds per print.
double Time(PrintNodeFn print, IXML_Node* node) {
  std::vector<double> rounds;
  for (int r = 0; r < kRounds; ++r) {
    Clock::time_point start = Clock::now();
    for (int i = 0; i < kPrintsPerRound; ++i) ixmlFreeDOMString(print(node));
    rounds.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count() /
                     kPrintsPerRound);
  }
  std::sort(rounds.begin(), rounds.end());
  return rounds[rounds.size() / 2];
}

}  // namespace

int main() {
  auto libixml = reinterpret_cast<PrintNodeFn>(dlsym(RTLD_NEXT, "ixmlPrintNode"));
  const std::string didl = Didl();
  IXML_Document* answer = BrowseAnswer(didl);
  if (!libixml || !answer) {
    fprintf(stderr, "no libixml printer or no answer\n");
    return 1;
  }
  IXML_Node* node = &answer->n;
  char* ours = ixmlPrintNode(node);
  char* theirs = libixml(node);
  const size_t bytes = strlen(ours);
  const bool same = strcmp(ours, theirs) == 0;
  ixmlFreeDOMString(ours);
  ixmlFreeDOMString(theirs);

  const double oursUs = Time(ixmlPrintNode, node);
  const double theirsUs = Time(libixml, node);
  printf("Browse answer: %zu bytes of DIDL-Lite, %zu bytes printed, identical: %s\n", didl.size(),
         bytes, same ? "yes" : "NO");
  printf("ours:    %8.1f us per print, %5.2f ns per byte\n", oursUs, oursUs * 1000 / bytes);
  printf("libixml: %8.1f us per print, %5.2f ns per byte\n", theirsUs, theirsUs * 1000 / bytes);
  printf("speed-up: %.1fx\n", theirsUs / oursUs);
  ixmlDocument_free(answer);
  return same ? 0 : 1;
}
