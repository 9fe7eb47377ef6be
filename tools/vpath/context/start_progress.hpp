#pragma once
// The progress of a long start. A start that reads many folders from disk (a cold start of a path
// of 100,000 folders takes seconds) shows on standard error how many it has read, as git shows
// its counting, once it has run for a second:
//
//   vpath: reading folders: 41234
//   vpath: reading folders: 100000, done.
//
// Only when standard error is a terminal: logs, pipes and scripts see nothing. VPATH_PROGRESS_DELAY
// sets the second to another number of seconds (0: show every start's count).

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

namespace vpath_cli {

// StartProgress: shows the progress from its construction to its destruction, the time a start
// reads the path's folders.
class StartProgress {
  public:
    StartProgress();
    ~StartProgress();
    StartProgress(const StartProgress&) = delete;
    StartProgress& operator=(const StartProgress&) = delete;

  private:
    void Show(const char* end) const;

    bool m_active = false;
    std::chrono::steady_clock::duration m_delay{};
    std::chrono::steady_clock::time_point m_start;
    std::uint64_t m_listedBefore = 0;
    std::mutex m_mutex;
    std::condition_variable m_finished;
    bool m_done = false;
    std::thread m_thread;
};

}  // namespace vpath_cli
