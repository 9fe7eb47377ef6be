#pragma once
// PathPoller: keeps an IWatchedPath fresh by reading it again at each call, for file systems that
// inotify does not serve (network shares, some containers).
//
// A poll takes up the saved folder list and reads again each folder whose stamp changed. A stamp
// only tells of changes made after its own tick: a folder changed within the file system's
// granularity of the moment it was read may change again within the same tick and keep its stamp.
// Such a folder is read again at the next poll, whatever its stamp says.
//
//   PathPoller poller(manager, {});
//   for (;;) {
//       poller.Poll(problems);  // observers of the manager hear what changed
//       std::this_thread::sleep_for(1s);
//   }

#include <chrono>
#include <vector>

#include <foundation/core/except/notification.hpp>
#include <foundation/storage/vfs/absolute_iri.hpp>
#include <velmora/searchpath/export.hpp>
#include <velmora/searchpath/watched_path.hpp>

namespace Velmora::SearchPath {

class VELMORA_SEARCHPATH_EXPORT PathPoller {
  public:
    struct Options {
        // The coarsest stamp tick expected of the folders' file systems (FAT's is 2 s).
        std::chrono::nanoseconds granularity{std::chrono::seconds(2)};
    };

    // The path (`path`) must outlive the poller.
    PathPoller(IWatchedPath& path, Options options);

    // Poll: takes up the path definition file, reads again the folders whose stamps changed and
    // those whose stamps were too recent to trust at the last poll. Problems reading the path
    // definition file go to `problems`.
    void Poll(foundation::core::except::Notification& problems);

  private:
    IWatchedPath& m_path;
    Options m_options;
    std::vector<foundation::storage::vfs::AbsoluteIRI> m_untrusted;
};

}  // namespace Velmora::SearchPath
