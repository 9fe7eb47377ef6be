#pragma once
// The one seam between the host and the operating system.
//
// Every call that the host makes to the OS goes through an ISystem. Production code uses the real
// one; a test installs a replacement with ScopedSystemOverride to make chosen calls fail with
// chosen error numbers (EACCES, ENOENT, ENAMETOOLONG, ELOOP, EIO, ...), which cannot be provoked
// for real when the suite runs as root.
//
// Paths here are native byte strings. Every operation returns 0 on success or an errno value.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <velmora/platform/export.hpp>

namespace Velmora::os {

// FileStatus: what the host needs to know of one file or folder.
struct FileStatus {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t modifiedNs = 0;  // modification time, nanoseconds since the epoch
    std::int64_t changedNs = 0;   // status change time, nanoseconds since the epoch
    std::int64_t accessedNs = 0;  // last access time, nanoseconds since the epoch
    std::uint32_t mode = 0;       // st_mode
    std::uint32_t owner = 0;      // st_uid
    std::uint32_t group = 0;      // st_gid

    VELMORA_PLATFORM_EXPORT bool IsFolder() const noexcept;
    VELMORA_PLATFORM_EXPORT bool IsRegularFile() const noexcept;
};

// EntryKind: the kind of a folder item as the folder listing reports it, before any stat.
enum class EntryKind : std::uint8_t { Unknown, File, Folder, Symlink, Other };

struct FolderItem {
    std::string name;
    EntryKind kind = EntryKind::Unknown;
};

// FolderListing: the folder's own status and its items ("." and ".." left out), unsorted.
struct FolderListing {
    FileStatus status;
    std::vector<FolderItem> items;
};

// MappedFile: the whole content of a file mapped read-only into memory; unmapped when destroyed.
class VELMORA_PLATFORM_EXPORT MappedFile {
  public:
    virtual ~MappedFile();
    virtual std::string_view Bytes() const noexcept = 0;
    // Release: a hint that `part` of Bytes() is not needed again soon, so the memory that holds
    // it may be given back; reading it later still gives the same bytes.
    virtual void Release(std::string_view part) const noexcept;
};

// WatchEvent: one record of a folder-watch queue: which watch, what happened (Watch* bits) and
// the name of the item inside the watched folder (empty for the folder itself).
struct WatchEvent {
    int watch = -1;
    std::uint32_t mask = 0;
    std::uint32_t cookie = 0;  // pairs the two halves of a rename
    std::string name;
};

// The bits of a watch mask and of WatchEvent::mask (those of Linux's inotify).
inline constexpr std::uint32_t WatchModified = 0x00000002;     // a file's content was written
inline constexpr std::uint32_t WatchAttributes = 0x00000004;   // metadata changed
inline constexpr std::uint32_t WatchClosedWrite = 0x00000008;  // a file open for writing closed
inline constexpr std::uint32_t WatchMovedFrom = 0x00000040;    // an item was renamed away
inline constexpr std::uint32_t WatchMovedTo = 0x00000080;      // an item was renamed in
inline constexpr std::uint32_t WatchCreated = 0x00000100;
inline constexpr std::uint32_t WatchDeleted = 0x00000200;
inline constexpr std::uint32_t WatchSelfDeleted = 0x00000400;
inline constexpr std::uint32_t WatchSelfMoved = 0x00000800;
inline constexpr std::uint32_t WatchOverflow = 0x00004000;    // events were lost
inline constexpr std::uint32_t WatchIgnored = 0x00008000;     // the watch is gone
inline constexpr std::uint32_t WatchIsFolder = 0x40000000;    // the item is a folder
inline constexpr std::uint32_t WatchOnlyFolder = 0x01000000;  // refuse to watch a non-folder

class VELMORA_PLATFORM_EXPORT ISystem {
  public:
    virtual ~ISystem();

    // Stat: the status of path, following symbolic links.
    virtual int Stat(const std::string& path, FileStatus& out) = 0;
    // ListFolder: opens the folder, reads its status and all its items.
    virtual int ListFolder(const std::string& path, FolderListing& out) = 0;
    // RealPath: the absolute path with every symbolic link, "." and ".." resolved.
    virtual int RealPath(const std::string& path, std::string& out) = 0;
    // CurrentFolder: the process's current working folder.
    virtual int CurrentFolder(std::string& out) = 0;
    // ReadFile: the whole content of a file.
    virtual int ReadFile(const std::string& path, std::string& out) = 0;

    // Writing files. A file is written through a descriptor that CreateFileExclusive hands out
    // and that CloseFile gives back (it is given back even when CloseFile reports an error).
    //
    // CreateFileExclusive: creates a new, empty file for writing (mode 0666 less the umask); fails
    // with EEXIST if anything is at `path` already, a symbolic link included.
    virtual int CreateFileExclusive(const std::string& path, int& descriptor) = 0;
    // WriteAll: writes all of `data`, carrying on after short writes and interruptions.
    virtual int WriteAll(int descriptor, std::string_view data) = 0;
    // SyncFile: waits until the file's content is on the storage device (fsync).
    virtual int SyncFile(int descriptor) = 0;
    // CloseFile: gives the descriptor back.
    virtual int CloseFile(int descriptor) = 0;
    // Rename: puts the file `from` at `to` in one step, replacing whatever file was there.
    virtual int Rename(const std::string& from, const std::string& to) = 0;
    // RemoveFile: removes the file (not a folder) at `path`.
    virtual int RemoveFile(const std::string& path) = 0;
    // SyncFolder: waits until the folder's own entries (names created, renamed, removed) are on
    // the storage device.
    virtual int SyncFolder(const std::string& path) = 0;
    // OpenFileForWriting: opens the file for writing, emptying it, or creates it empty (mode 0666
    // less the umask); symbolic links are followed. The descriptor goes back through CloseFile.
    virtual int OpenFileForWriting(const std::string& path, int& descriptor) = 0;
    // MapFile: maps the whole regular file at `path` read-only; an empty file maps to no bytes.
    // A symbolic link is not followed (ELOOP) and the open never waits: ENODEV for a FIFO,
    // a device or a socket, EISDIR for a folder.
    virtual int MapFile(const std::string& path, std::unique_ptr<const MappedFile>& out) = 0;
    // MakeFolders: creates the folder `path` and any missing folders above it (mode 0777 less the
    // umask). Succeeds if the folder exists already.
    virtual int MakeFolders(const std::string& path) = 0;

    // Small files that others may have replaced by something hostile, and their locks. These
    // have working defaults (the real system), so a replacement overrides only what it fails.
    //
    // ReadRegularFile: the whole content of a regular file of at most `maxBytes` bytes, without
    // ever blocking on what is not a regular file: EISDIR for a folder, ENODEV for any other
    // kind of file (a FIFO, a device, a socket), EFBIG for a file larger than `maxBytes`.
    virtual int ReadRegularFile(const std::string& path, std::uint64_t maxBytes, std::string& out);
    // SetOwnerAndMode: gives the file behind `descriptor` this owner and group, as far as the
    // process may (only the superuser may give a file away), and these permission bits.
    virtual int SetOwnerAndMode(int descriptor, std::uint32_t owner, std::uint32_t group,
                                std::uint32_t mode);
    // OpenLockFile: opens the file at `path` for locking, creating it (empty) if needed. The
    // descriptor is given back with CloseFile, which also releases its lock.
    virtual int OpenLockFile(const std::string& path, int& descriptor);
    // LockExclusive: an exclusive advisory lock (flock) on the file behind `descriptor`; waits
    // for it when `wait`, else fails at once with EWOULDBLOCK while another holds it.
    virtual int LockExclusive(int descriptor, bool wait);

    // Files kept in a place of the user's own (the path cache), which another user may have
    // planted or replaced. These too have the real system's behaviour by default.
    //
    // LinkStatus: the status of `path` itself, a symbolic link not followed (lstat).
    virtual int LinkStatus(const std::string& path, FileStatus& out);
    // UserId: the user the process acts as (its effective user id).
    virtual std::uint32_t UserId();
    // MakePrivateFolder: creates the one folder `path`, readable and writable by its owner alone
    // (0700, whatever the umask); EEXIST when anything is there already.
    virtual int MakePrivateFolder(const std::string& path);
    // CreatePrivateFile: creates a new, empty file for writing, readable and writable by its owner
    // alone (0600, whatever the umask); EEXIST when anything is there, a symbolic link included.
    // The descriptor goes back through CloseFile.
    virtual int CreatePrivateFile(const std::string& path, int& descriptor);
    // RemoveFolder: removes the empty folder at `path` (ENOTEMPTY when it is not empty).
    virtual int RemoveFolder(const std::string& path);
    // ProcessExists: whether a process of this id is running (or may be: one of another user).
    virtual bool ProcessExists(std::uint32_t process);
    // ProcessId: this process's id.
    virtual std::uint32_t ProcessId();
    // IsTerminal: whether `descriptor` (1 for standard output, 2 for standard error) is a
    // terminal, where a person reads what is written rather than a program.
    virtual bool IsTerminal(int descriptor);

    // Watching folders (Linux inotify). These too have the real system's
    // behaviour by default, so that a replacement overrides only what it wants to fail.
    //
    // WatchOpen: a new, empty watch queue.
    virtual int WatchOpen(int& queue);
    // WatchAdd: watches the folder at `path` for the events in `mask`; ENOSPC when the user's
    // watches are used up. Watching a folder twice gives the same watch.
    virtual int WatchAdd(int queue, const std::string& path, std::uint32_t mask, int& watch);
    // WatchRemove: stops a watch.
    virtual int WatchRemove(int queue, int watch);
    // WatchRead: waits at most `timeoutMs` for events, then takes all that are queued (`out` left
    // empty when the time ran out).
    virtual int WatchRead(int queue, int timeoutMs, std::vector<WatchEvent>& out);
    // WatchClose: closes the queue and all its watches.
    virtual int WatchClose(int queue);

    // Local sockets and the standard streams, for the path service and its clients. These too
    // have the real system's behaviour by default. A timeout of -1 waits for ever.
    //
    // SocketListen: a Unix stream socket bound to `path` (which must not exist) and listening.
    virtual int SocketListen(const std::string& path, int& descriptor);
    // SocketConnect: a Unix stream socket connected to the one listening at `path`, waiting at
    // most `timeoutMs`; ECONNREFUSED when nothing listens there, ENOENT when nothing is there.
    virtual int SocketConnect(const std::string& path, int timeoutMs, int& descriptor);
    // SocketAccept: the next connection to `listener`, waiting at most `timeoutMs` (ETIMEDOUT).
    virtual int SocketAccept(int listener, int timeoutMs, int& descriptor);
    // SocketPeerUser: the user id of the process at the other end of a connected socket, as the
    // kernel recorded it when it connected.
    virtual int SocketPeerUser(int descriptor, std::uint32_t& user);
    // SocketSend: writes all of `data`, waiting at most `timeoutMs` for the other end to take it.
    virtual int SocketSend(int descriptor, std::string_view data, int timeoutMs);
    // SocketReceive: reads exactly `size` bytes into `out`, waiting at most `timeoutMs` in all;
    // ECONNRESET when the other end closes first.
    virtual int SocketReceive(int descriptor, std::size_t size, int timeoutMs, std::string& out);
    // SocketShutdown: ends both directions of a connected socket, so that a thread waiting to
    // receive on it wakes (with ECONNRESET) and its peer sees the end.
    virtual int SocketShutdown(int descriptor);
    // CaptureStream: makes standard stream `stream` (0, 1 or 2) a new, empty file in memory and
    // gives in `saved` a descriptor of what it was, for EndCapture.
    virtual int CaptureStream(int stream, int& saved);
    // EndCapture: puts back what CaptureStream saved and gives what was written meanwhile.
    virtual int EndCapture(int stream, int saved, std::string& written);
    // ChangeFolder: makes `path` the process's current folder.
    virtual int ChangeFolder(const std::string& path);
    // SpawnDetached: runs `argv` (argv[0] a path) as a process of its own session, its standard
    // input from /dev/null, its standard output and error appended to `logPath` (0600), and
    // does not wait for it: from then on, the process's children are reaped as they end.
    virtual int SpawnDetached(const std::vector<std::string>& argv, const std::string& logPath,
                              std::uint32_t& process);
};

// System: the seam in force. The real system unless a test has overridden it.
VELMORA_PLATFORM_EXPORT ISystem& System();

// RealSystem: the real operating system, for replacements that fail some calls and pass on the
// rest.
VELMORA_PLATFORM_EXPORT ISystem& RealSystem();

// ScopedSystemOverride: installs a replacement seam for its lifetime and restores the previous
// one after. Meant for tests; install it before other threads start using the host.
class VELMORA_PLATFORM_EXPORT ScopedSystemOverride {
  public:
    explicit ScopedSystemOverride(ISystem& replacement);
    ~ScopedSystemOverride();
    ScopedSystemOverride(const ScopedSystemOverride&) = delete;
    ScopedSystemOverride& operator=(const ScopedSystemOverride&) = delete;

  private:
    ISystem* m_previous;
};

// ErrorText: the system's description of an errno value ("No such file or directory").
VELMORA_PLATFORM_EXPORT std::string ErrorText(int error);

}  // namespace Velmora::os
