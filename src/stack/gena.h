// Event subscriptions of the device's services and the delivery of their
// events: SUBSCRIBE, renew and UNSUBSCRIBE as the web server hands them over,
// and NOTIFY messages sent by one thread of its own that never blocks a
// request thread. Every delivery has a deadline; a callback that keeps failing
// loses its subscription; subscriptions are capped in all and per client
// address and expire unless renewed. A callback must name the address the
// subscription came from, so events never go to a third host.
//
// All calls are thread-safe.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>

// The result of a subscription request: an HTTP status, and for 200 the SID
// ("uuid:...") and the granted timeout in seconds.
struct GenaReply {
  unsigned status;
  std::string sid;
  int timeout;
};

// Starts the sender; 0 or -1.
int GenaStart();

// Stops the sender and forgets every subscription.
void GenaStop();

// A new subscription to `serviceId` from `client`, with the CALLBACK, NT and
// TIMEOUT header values (null when absent). It receives events only once
// accepted (GenaAccept) and, for its initial event, released (GenaRelease).
GenaReply GenaSubscribe(const char* serviceId, const sockaddr_in& client, const char* callback,
                        const char* nt, const char* timeout);

// Renews subscription `sid` of `serviceId`.
GenaReply GenaRenew(const char* serviceId, const char* sid, const char* timeout);

// Ends subscription `sid` of `serviceId`: 200, or 412 when there is none.
unsigned GenaUnsubscribe(const char* serviceId, const char* sid);

// Accepts subscription `sid` and queues its initial event with `count`
// variables. 0, or -1 for an unknown subscription.
int GenaAccept(const char* serviceId, const char* sid, const char** names, const char** values,
               int count);

// The answer to the SUBSCRIBE of `sid` has gone out: its initial event may
// follow.
void GenaRelease(const std::string& sid);

// Queues one event with `count` variables for every accepted subscriber of
// `serviceId`; 0, or -1 when the sender is not running.
int GenaNotify(const char* serviceId, const char** names, const char** values, int count);

// The number of live subscriptions (for tests and logs).
size_t GenaSubscriptionCount();
