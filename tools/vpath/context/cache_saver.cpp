// The path cache of a command that runs on while the path changes (vpath watch). Writing the cache
// of a large path takes far longer than reporting a change, so it is written on a thread of its
// own, once the changes have paused: the report is not kept waiting, and a burst of changes costs
// one write. The cache only saves time at the next start, which lists again any folder whose stamp
// moved since it was written, so a write that never happens loses nothing.

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "path_cache_use.hpp"

namespace vpath_cli {
namespace {

using Clock = std::chrono::steady_clock;
using Velmora::SearchPath::FolderEntryList;
using Velmora::SearchPath::MainSearchPath;

// Written when no change came for this long...
constexpr std::chrono::milliseconds kQuiet{1000};
// ...or this long after the first change not yet written, whatever comes.
constexpr std::chrono::milliseconds kLongest{30000};

class CacheSaver {
  public:
    explicit CacheSaver(CacheSlot slot) : m_slot(std::move(slot)), m_thread([this] { Run(); }) {}
    ~CacheSaver() {
        {
            std::lock_guard lock(m_mutex);
            m_stop = true;
        }
        m_wake.notify_all();
        m_thread.join();
    }
    CacheSaver(const CacheSaver&) = delete;
    CacheSaver& operator=(const CacheSaver&) = delete;

    void Changed(std::shared_ptr<const MainSearchPath> path) {
        {
            std::lock_guard lock(m_mutex);
            if (!m_latest)
                m_firstUnsaved = Clock::now();
            m_latest = std::move(path);
            m_lastChange = Clock::now();
        }
        m_wake.notify_all();
    }

  private:
    void Run() {
        std::unique_lock lock(m_mutex);
        while (true) {
            m_wake.wait(lock, [&] { return m_stop || m_latest; });
            if (!m_stop) {
                const auto due = [&] {
                    return std::min(m_lastChange + kQuiet, m_firstUnsaved + kLongest);
                };
                while (!m_stop && Clock::now() < due())
                    m_wake.wait_until(lock, due());
            }
            auto path = std::move(m_latest);
            m_latest = nullptr;
            if (path) {
                lock.unlock();
                SaveCacheIfWorthIt(m_slot, {}, path->GetFolderEntries());
                path.reset();
                lock.lock();
            }
            if (m_stop && !m_latest)
                return;
        }
    }

    const CacheSlot m_slot;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::shared_ptr<const MainSearchPath> m_latest;
    Clock::time_point m_firstUnsaved;
    Clock::time_point m_lastChange;
    bool m_stop = false;
    std::thread m_thread;
};

std::mutex g_saverMutex;
std::unique_ptr<CacheSaver> g_saver;

}  // namespace

void UseCacheInBackground(const std::optional<CacheSlot>& slot, const FolderEntryList& loaded,
                          Velmora::SearchPath::MainSearchPathManager& manager) {
    if (!slot)
        return;
    std::lock_guard lock(g_saverMutex);
    g_saver = std::make_unique<CacheSaver>(*slot);
    // A start that found a change is written too, but not before the watch begins.
    const auto start = manager.GetSnapshot();
    if (!Velmora::SearchPath::SameEntries(loaded, start->GetFolderEntries()))
        g_saver->Changed(start);
    manager.AddPathChangeObserver([](const Velmora::PathManagement::PathChange& change) {
        if (auto after = std::dynamic_pointer_cast<const MainSearchPath>(change.after)) {
            std::lock_guard held(g_saverMutex);
            if (g_saver)
                g_saver->Changed(std::move(after));
        }
    });
}

void FinishCacheSaving() {
    std::lock_guard lock(g_saverMutex);
    g_saver.reset();
}

}  // namespace vpath_cli
