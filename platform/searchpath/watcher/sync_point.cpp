#include "sync_point.hpp"

#include <atomic>
#include <charconv>

#include <velmora/os/system.hpp>

namespace Velmora::SearchPath::detail {

namespace {

std::string NewPrefix() {
    static std::atomic<std::uint64_t> made{0};
    return "sync." + std::to_string(os::System().ProcessId()) + "." + std::to_string(++made) + ".";
}

}  // namespace

SyncPoint::SyncPoint(std::string folder) : m_folder(std::move(folder)), m_prefix(NewPrefix()) {}

std::optional<std::uint64_t> SyncTicketOf(std::string_view name, std::string_view prefix) {
    if (!name.starts_with(prefix))
        return std::nullopt;
    name.remove_prefix(prefix.size());
    std::uint64_t ticket = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), ticket);
    if (error != std::errc() || end != name.data() + name.size())
        return std::nullopt;
    return ticket;
}

SyncPoint::Outcome SyncPoint::Await(std::chrono::milliseconds timeout) {
    std::unique_lock lock(m_mutex);
    const std::uint64_t ticket = ++m_nextTicket;
    const std::uint64_t overflows = m_overflows;
    const std::string file = m_folder + "/" + m_prefix + std::to_string(ticket);
    int descriptor = -1;
    if (os::System().CreatePrivateFile(file, descriptor) != 0)
        return Outcome::Unusable;
    os::System().CloseFile(descriptor);
    os::System().RemoveFile(file);
    const bool done = m_changed.wait_for(
        lock, timeout, [&] { return m_passed >= ticket || m_overflows != overflows; });
    // Events lost since the last sync, even before this one began, may be of a change made
    // before it: the watcher's own revalidation trusts stamps, which a change within their tick
    // does not move.
    const bool lost = m_overflows != m_overflowsTold;
    m_overflowsTold = m_overflows;
    if (!done)
        return Outcome::TimedOut;
    return m_passed >= ticket && !lost ? Outcome::Passed : Outcome::Overflowed;
}

void SyncPoint::Passed(std::uint64_t ticket, bool overflowed) {
    if (ticket == 0 && !overflowed)
        return;
    {
        std::lock_guard lock(m_mutex);
        if (ticket > m_passed)
            m_passed = ticket;
        if (overflowed)
            ++m_overflows;
    }
    m_changed.notify_all();
}

}  // namespace Velmora::SearchPath::detail
