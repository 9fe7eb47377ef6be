#include "start_progress.hpp"

#include <cstdio>
#include <cstdlib>
#include <string>

#include <velmora/os/system.hpp>
#include <velmora/searchpath/folder_scanner.hpp>

namespace vpath_cli {
namespace {

constexpr std::chrono::milliseconds kDefaultDelay{1000};
constexpr std::chrono::milliseconds kEvery{100};

std::chrono::steady_clock::duration Delay() {
    const char* value = std::getenv("VPATH_PROGRESS_DELAY");
    if (value == nullptr || *value == '\0')
        return kDefaultDelay;
    char* end = nullptr;
    const double seconds = std::strtod(value, &end);
    if (*end != '\0' || !(seconds >= 0.0) || seconds > 3600.0)
        return kDefaultDelay;
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(seconds));
}

}  // namespace

StartProgress::StartProgress() {
    if (!Velmora::os::System().IsTerminal(2))
        return;
    m_active = true;
    m_delay = Delay();
    m_start = std::chrono::steady_clock::now();
    m_listedBefore = Velmora::SearchPath::FoldersListed();
    m_thread = std::thread([this] {
        std::unique_lock lock(m_mutex);
        if (m_finished.wait_for(lock, m_delay, [this] { return m_done; }))
            return;
        do {
            Show("");
        } while (!m_finished.wait_for(lock, kEvery, [this] { return m_done; }));
    });
}

StartProgress::~StartProgress() {
    if (!m_active)
        return;
    {
        const std::lock_guard lock(m_mutex);
        m_done = true;
    }
    m_finished.notify_one();
    m_thread.join();
    if (std::chrono::steady_clock::now() - m_start >= m_delay)
        Show(", done.\n");
}

void StartProgress::Show(const char* end) const {
    // From the start of the line, over the count shown before, which a larger one covers.
    const std::string line = "\rvpath: reading folders: " +
                             std::to_string(Velmora::SearchPath::FoldersListed() - m_listedBefore) +
                             end;
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

}  // namespace vpath_cli
