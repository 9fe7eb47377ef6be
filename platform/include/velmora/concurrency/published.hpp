#pragma once
// Published<T>: the current version of an immutable object, which one writer replaces while any
// number of readers take it.
//
// Readers get a shared pointer to a whole version and keep it as long as they like; a replaced
// version lives until its last reader lets go. The lock is held only to copy or swap one pointer,
// and an old version is destroyed outside it.
//
// std::atomic<std::shared_ptr<T>> would do the same without a lock, but the standard library we
// build with releases its internal lock in load() with relaxed ordering, which makes a reader's
// copy race with the next store.
//
//   Published<MainSearchPath> current(MainSearchPath::Scan(folders, report));
//   auto snapshot = current.Load();           // readers, any thread
//   current.Store(MainSearchPath::Scan(...)); // the writer

#include <memory>
#include <mutex>
#include <utility>

namespace Velmora::concurrency {

template <class T>
class Published {
  public:
    explicit Published(std::shared_ptr<const T> initial = nullptr) : m_value(std::move(initial)) {}
    Published(const Published&) = delete;
    Published& operator=(const Published&) = delete;

    std::shared_ptr<const T> Load() const {
        std::lock_guard lock(m_mutex);
        return m_value;
    }

    void Store(std::shared_ptr<const T> value) { Exchange(std::move(value)); }

    // Exchange: publishes `value` and returns the version it replaced.
    std::shared_ptr<const T> Exchange(std::shared_ptr<const T> value) {
        {
            std::lock_guard lock(m_mutex);
            m_value.swap(value);
        }
        return value;
    }

  private:
    mutable std::mutex m_mutex;
    std::shared_ptr<const T> m_value;
};

}  // namespace Velmora::concurrency
