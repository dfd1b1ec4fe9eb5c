// Events sent by the server itself: a value set inside the daemon reaches a
// subscribed control point once. Runs the device in this process (inside the
// test sandbox) so the set can be made directly.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "content/state_var.h"
#include "core/dlna_dms.h"
#include "e2e/upnp_client.h"
#include "stack/upnp_device.h"

namespace {

using namespace std::chrono_literals;

TEST(DeviceEventsInProcess, EachSetSendsExactlyOneEventWithTheNewValue) {
  char dir[] = "/tmp/dmsd-events-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  UpnpDeviceSetUuidFile((std::string(dir) + "/dms.uuid").c_str());
  memset(&gtDmsCfg, 0, sizeof gtDmsCfg);
  gtDmsCfg.bEnable = 1;
  gtDmsCfg.iPort = 49152;
  strcpy(gtDmsCfg.szIp, "127.0.0.1");
  strcpy(gtDmsCfg.szIf, "lo");
  _dlnaDmsInit();
  ASSERT_EQ(_dlnaDmsStart(), 0);

  e2e::EventListener listener;
  e2e::HttpResponse subscribed =
      e2e::httpRequest("http://127.0.0.1:49152/web/cds_event", "SUBSCRIBE",
                       {{"CALLBACK", "<" + listener.callbackUrl() + ">"}, {"NT", "upnp:event"}});
  ASSERT_EQ(subscribed.status, 200) << subscribed.raw;
  std::optional<e2e::GenaEvent> initial = listener.next();
  ASSERT_TRUE(initial);
  EXPECT_EQ(initial->seq, "0");
  EXPECT_EQ(initial->properties, (e2e::Fields{{"SystemUpdateID", "1"}}));

  dlnaSetVarValueNum(kCdsServiceId, "SystemUpdateID", 7);
  std::optional<e2e::GenaEvent> update = listener.next();
  ASSERT_TRUE(update);
  EXPECT_EQ(update->seq, "1");
  EXPECT_EQ(update->properties, (e2e::Fields{{"SystemUpdateID", "7"}}));
  EXPECT_FALSE(listener.next(500ms)) << "a second event for one set";

  // A variable of a service the subscriber did not ask for sends it nothing.
  dlnaSetVarValue(kCmsServiceId, "SourceProtocolInfo", "http-get:*:audio/mpeg:*");
  EXPECT_FALSE(listener.next(500ms));

  _dlnaDmsStop();
  std::filesystem::remove_all(dir);
}

}  // namespace
