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

// Sends one changed variable to the subscribers. Called with sets serialised,
// so it sees the values in the order they changed.
using DlnaVarNotifier = void (*)(const char* serviceId, const char* varName, const char* value);

// Installs where dlnaSetVarValue sends its events; null sends none.
void dlnaSetVarNotifier(DlnaVarNotifier notifier);

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

// Adds the protocolInfo entry of (name, mime) to SourceProtocolInfo: DLNA
// entries in front, NON-DLNA ones at the end, nothing already contained. 0, or
// -1 when the variable does not exist. The profiler's sink.
int32_t dlnaAddSourceProtocolInfo(const char* name, const char* mime);
