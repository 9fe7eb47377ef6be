#pragma once
// The client of the path service: asks the service of a saved path, if one runs, and gives its
// whole reply, or nothing.
//
//   if (const auto reply = AskPathService(*place, request, {})) {
//       ... print reply->out and reply->err, exit with reply->status ...
//   } else {
//       ... answer from the disk ...
//   }
//
// Nothing is given unless the whole reply arrived and parsed: a service that is absent, dead,
// killed while it answers, or that does not greet the client in time, leaves the caller to answer
// by itself, so that it never prints a wrong, partial or doubled answer.

#include <optional>

#include <velmora/searchpath/export.hpp>
#include <velmora/searchpath/service_place.hpp>
#include <velmora/searchpath/service_protocol.hpp>

namespace Velmora::SearchPath {

struct ServiceTimeouts {
    // The most a client waits to be connected and greeted: a service that is stopped or busy
    // with another request is not waited for longer.
    int greetMs = 500;
    // The most it waits for the reply once greeted.
    int replyMs = 60'000;
};

// AskPathService: sends `request` to the service at `place` and returns its reply; none when
// there is no usable service, it declined (kDeclined) or did not answer in full and in time.
VELMORA_SEARCHPATH_EXPORT std::optional<ServiceReply> AskPathService(
    const ServicePlace& place, const ServiceRequest& request, const ServiceTimeouts& timeouts);

// PathServiceRuns: whether the service at `place` answers a status request.
VELMORA_SEARCHPATH_EXPORT bool PathServiceRuns(const ServicePlace& place);

}  // namespace Velmora::SearchPath
