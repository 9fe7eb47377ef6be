// PathCacheKeeper: the cache of one path over a program's life. Writing the cache of a large path
// takes far longer than reporting a change, so a program that runs on may have it written on a
// thread of its own, once the changes have paused: no change is kept waiting, and a burst of
// changes costs one write. The cache only saves time at the next start, which lists again any
// folder whose stamp moved since it was written, so a write that never happens loses nothing.

#include <velmora/searchpath/cached_start.hpp>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace Velmora::SearchPath {
namespace {

using Clock = std::chrono::steady_clock;

// Written when no change came for this long...
constexpr std::chrono::milliseconds kQuiet{1000};
// ...or this long after the first change not yet written, whatever comes.
constexpr std::chrono::milliseconds kLongest{30000};

}  // namespace

class PathCacheKeeper::Background {
  public:
    Background(const PathCacheSlot& slot, const CacheWarning& warn)
        : m_slot(slot), m_warn(warn), m_thread([this] { Run(); }) {}
    ~Background() {
        {
            std::lock_guard lock(m_mutex);
            m_stop = true;
        }
        m_wake.notify_all();
        m_thread.join();
    }
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

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
                // What the file holds was read before the changes came: each write is worth it.
                SavePathCacheIfWorthIt(m_slot, {}, path->GetFolderEntries(), m_warn);
                path.reset();
                lock.lock();
            }
            if (m_stop && !m_latest)
                return;
        }
    }

    const PathCacheSlot& m_slot;
    const CacheWarning& m_warn;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::shared_ptr<const MainSearchPath> m_latest;
    Clock::time_point m_firstUnsaved;
    Clock::time_point m_lastChange;
    bool m_stop = false;
    std::thread m_thread;
};

PathCacheKeeper::PathCacheKeeper(PathCacheSlot slot, bool inBackground, CacheWarning warn)
    : m_slot(std::move(slot)), m_warn(std::move(warn)) {
    if (inBackground)
        m_background = std::make_unique<Background>(m_slot, m_warn);
}

PathCacheKeeper::~PathCacheKeeper() {
    Finish();
}

FolderEntryList PathCacheKeeper::Load(
    const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders) {
    m_saved = LoadCachedEntries(m_slot, folders, m_warn);
    return m_saved;
}

void PathCacheKeeper::Offer(std::shared_ptr<const MainSearchPath> path) {
    if (m_background) {
        // A start that found nothing new has nothing to write.
        if (!SameEntries(m_saved, path->GetFolderEntries()))
            m_background->Changed(std::move(path));
        m_saved.clear();
        return;
    }
    if (SavePathCacheIfWorthIt(m_slot, m_saved, path->GetFolderEntries(), m_warn))
        m_saved = path->GetFolderEntries();
}

void PathCacheKeeper::Finish() {
    m_background.reset();
}

}  // namespace Velmora::SearchPath
