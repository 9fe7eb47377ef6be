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

#include <memory>
#include <optional>
#include <string_view>

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

// PathServiceBatch: a `which --batch` answered by the service, piece by piece.
//
//   ServiceReply opening;
//   if (auto batch = PathServiceBatch::Open(place, request, {}, opening)) {
//       ... print opening ...
//       while (... names ...) {
//           if (const auto answers = batch->Ask(names)) { ... print them ... }
//           else { ... answer these names and the rest without the service ... }
//       }
//   }
//
// As with AskPathService, nothing is given but whole replies: a service that dies during a batch
// leaves the names whose answers had not arrived to the caller.
class VELMORA_SEARCHPATH_EXPORT PathServiceBatch {
  public:
    // Open: sends the Batch request; null when no usable service answers it (or it declines).
    static std::unique_ptr<PathServiceBatch> Open(const ServicePlace& place,
                                                  const ServiceRequest& request,
                                                  const ServiceTimeouts& timeouts,
                                                  ServiceReply& opening);
    // Ends the batch.
    ~PathServiceBatch();
    PathServiceBatch(const PathServiceBatch&) = delete;
    PathServiceBatch& operator=(const PathServiceBatch&) = delete;

    // Ask: the answers to `names`, each ended by the batch's separator (at most kMostRequestBytes
    // in all); none when the service did not give them in full, and from then on.
    std::optional<ServiceReply> Ask(std::string_view names);

  private:
    PathServiceBatch(int socket, int replyMs);
    int m_socket;
    int m_replyMs;
};

// PathServiceRuns: whether the service at `place` answers a status request.
VELMORA_SEARCHPATH_EXPORT bool PathServiceRuns(const ServicePlace& place);

}  // namespace Velmora::SearchPath
