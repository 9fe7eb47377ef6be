#pragma once
// SyncPoint: how PathWatcher::Sync knows that the watcher has taken in every change made before
// it was called.
//
// Sync makes a file "sync.<pid>.<n>.<ticket>" (Prefix() and a ticket) in a folder watched through
// the same inotify queue as the path, and removes it at once. The kernel queues events in the order
// the changes happen, so once the watcher reads the event of that file, it has read every event of
// a change made before it; once it has refreshed the folders they name and published, the ticket
// has passed. Tickets only grow: a sync file whose event the kernel dropped in an overflow is
// passed by the next one (and the overflow itself makes the waiting Sync revalidate instead).

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace Velmora::SearchPath::detail {

// SyncTicketOf: the ticket of a sync file's name of `prefix` ("sync.7.1.42" => 42); none for
// another name (another watcher's, in the same folder, included).
std::optional<std::uint64_t> SyncTicketOf(std::string_view name, std::string_view prefix);

class SyncPoint {
  public:
    enum class Outcome { Passed, Overflowed, TimedOut, Unusable };

    explicit SyncPoint(std::string folder);

    const std::string& Folder() const noexcept { return m_folder; }
    // Prefix: the start of this sync point's file names, told apart from any other watcher's.
    const std::string& Prefix() const noexcept { return m_prefix; }

    // Await: makes the next sync file and waits at most `timeout` until the watcher has passed it
    // (Passed), or has lost events (Overflowed: the caller must revalidate). Events lost since
    // the last Await make it Overflowed too.
    Outcome Await(std::chrono::milliseconds timeout);

    // Passed: called by the watcher's thread once it has published what it read up to sync file
    // `ticket` (0: none read), and after it revalidated the path for an overflow.
    void Passed(std::uint64_t ticket, bool overflowed);

  private:
    const std::string m_folder;
    const std::string m_prefix;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::uint64_t m_nextTicket = 0;
    std::uint64_t m_passed = 0;
    std::uint64_t m_overflows = 0;
    std::uint64_t m_overflowsTold = 0;  // the overflows when the last Await returned
};

}  // namespace Velmora::SearchPath::detail
