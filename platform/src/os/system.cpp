// The real operating system behind the seam. This file and nothing else in the project includes
// POSIX headers for file-system calls.

#include <velmora/os/system.hpp>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmora::os {
namespace {

std::int64_t ToNanoseconds(const timespec& ts) {
    return static_cast<std::int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

void FillStatus(const struct stat& st, FileStatus& out) {
    out.device = static_cast<std::uint64_t>(st.st_dev);
    out.inode = static_cast<std::uint64_t>(st.st_ino);
    out.size = static_cast<std::uint64_t>(st.st_size);
    out.modifiedNs = ToNanoseconds(st.st_mtim);
    out.changedNs = ToNanoseconds(st.st_ctim);
    out.accessedNs = ToNanoseconds(st.st_atim);
    out.mode = static_cast<std::uint32_t>(st.st_mode);
    out.owner = static_cast<std::uint32_t>(st.st_uid);
    out.group = static_cast<std::uint32_t>(st.st_gid);
}

struct DescriptorCloser {
    int fd;
    ~DescriptorCloser() { ::close(fd); }
};

EntryKind KindOf(unsigned char type) {
    switch (type) {
        case DT_REG:
            return EntryKind::File;
        case DT_DIR:
            return EntryKind::Folder;
        case DT_LNK:
            return EntryKind::Symlink;
        case DT_UNKNOWN:
            return EntryKind::Unknown;
        default:
            return EntryKind::Other;
    }
}

class MappedRegion final : public MappedFile {
  public:
    MappedRegion(void* address, std::size_t size) : m_address(address), m_size(size) {}
    ~MappedRegion() override {
        if (m_size != 0)
            ::munmap(m_address, m_size);
    }
    MappedRegion(const MappedRegion&) = delete;
    MappedRegion& operator=(const MappedRegion&) = delete;
    std::string_view Bytes() const noexcept override {
        return {static_cast<const char*>(m_address), m_size};
    }
    void Release(std::string_view part) const noexcept override {
        // Only whole pages inside the part; the mapping is read-only and private, so a page given
        // back is read again from the file when it is next touched.
        const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
        const auto begin = (reinterpret_cast<std::uintptr_t>(part.data()) + page - 1) / page * page;
        const auto end =
            (reinterpret_cast<std::uintptr_t>(part.data()) + part.size()) / page * page;
        if (end > begin)
            ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
    }

  private:
    void* m_address;
    std::size_t m_size;
};

struct DirCloser {
    void operator()(DIR* d) const { ::closedir(d); }
};

class RealSystemImpl final : public ISystem {
  public:
    int Stat(const std::string& path, FileStatus& out) override {
        struct stat st {};
        if (::stat(path.c_str(), &st) != 0)
            return errno;
        FillStatus(st, out);
        return 0;
    }

    int ListFolder(const std::string& path, FolderListing& out) override {
        const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0)
            return errno;
        struct stat st {};
        if (::fstat(fd, &st) != 0) {
            const int err = errno;
            ::close(fd);
            return err;
        }
        std::unique_ptr<DIR, DirCloser> dir(::fdopendir(fd));
        if (!dir) {
            const int err = errno;
            ::close(fd);
            return err;
        }
        FillStatus(st, out.status);
        out.items.clear();
        for (;;) {
            errno = 0;
            const dirent* e = ::readdir(dir.get());
            if (e == nullptr) {
                if (errno != 0)
                    return errno;
                break;
            }
            const char* name = e->d_name;
            if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) {
                continue;
            }
            out.items.push_back(FolderItem{name, KindOf(e->d_type)});
        }
        return 0;
    }

    int RealPath(const std::string& path, std::string& out) override {
        std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr),
                                                             &std::free);
        if (!resolved)
            return errno;
        out.assign(resolved.get());
        return 0;
    }

    int CurrentFolder(std::string& out) override {
        std::unique_ptr<char, decltype(&std::free)> cwd(::getcwd(nullptr, 0), &std::free);
        if (!cwd)
            return errno;
        out.assign(cwd.get());
        return 0;
    }

    int ReadFile(const std::string& path, std::string& out) override {
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            return errno;
        out.clear();
        char buffer[65536];
        for (;;) {
            const ssize_t n = ::read(fd, buffer, sizeof buffer);
            if (n < 0) {
                if (errno == EINTR)
                    continue;
                const int err = errno;
                ::close(fd);
                return err;
            }
            if (n == 0)
                break;
            out.append(buffer, static_cast<std::size_t>(n));
        }
        ::close(fd);
        return 0;
    }

    int CreateFileExclusive(const std::string& path, int& descriptor) override {
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0)
            return errno;
        descriptor = fd;
        return 0;
    }

    int WriteAll(int descriptor, std::string_view data) override {
        while (!data.empty()) {
            const ssize_t n = ::write(descriptor, data.data(), data.size());
            if (n < 0) {
                if (errno == EINTR)
                    continue;
                return errno;
            }
            data.remove_prefix(static_cast<std::size_t>(n));
        }
        return 0;
    }

    int SyncFile(int descriptor) override { return ::fsync(descriptor) == 0 ? 0 : errno; }

    int CloseFile(int descriptor) override {
        // Linux gives the descriptor back even when close reports an error, so it is never
        // retried: another thread may have been handed the same number meanwhile.
        return ::close(descriptor) == 0 ? 0 : errno;
    }

    int Rename(const std::string& from, const std::string& to) override {
        return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
    }

    int RemoveFile(const std::string& path) override {
        return ::unlink(path.c_str()) == 0 ? 0 : errno;
    }

    int SyncFolder(const std::string& path) override {
        const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0)
            return errno;
        const int err = ::fsync(fd) == 0 ? 0 : errno;
        ::close(fd);
        return err;
    }

    int MakeFolders(const std::string& path) override {
        if (path.empty())
            return ENOENT;
        // Create each folder from the top down; those that exist already are passed over.
        for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
            const std::string prefix = path.substr(0, end);
            if (::mkdir(prefix.c_str(), 0777) != 0 && errno != EEXIST)
                return errno;
            if (end == std::string::npos)
                break;
        }
        struct stat st {};
        if (::stat(path.c_str(), &st) != 0)
            return errno;
        return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
    }

    int ReadRegularFile(const std::string& path, std::uint64_t maxBytes,
                        std::string& out) override {
        // Without O_NONBLOCK, opening a FIFO that no one writes to would wait for ever.
        const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
        if (fd < 0)
            return errno;
        const DescriptorCloser closer{fd};
        struct stat st {};
        if (::fstat(fd, &st) != 0)
            return errno;
        if (S_ISDIR(st.st_mode))
            return EISDIR;
        if (!S_ISREG(st.st_mode))
            return ENODEV;
        if (static_cast<std::uint64_t>(st.st_size) > maxBytes)
            return EFBIG;
        // Straight into place up to the size the file had when opened; it may shrink or grow
        // while it is read.
        out.assign(static_cast<std::size_t>(st.st_size), '\0');
        std::size_t have = 0;
        while (have < out.size()) {
            const ssize_t n = ::read(fd, out.data() + have, out.size() - have);
            if (n < 0) {
                if (errno == EINTR)
                    continue;
                return errno;
            }
            if (n == 0) {
                out.resize(have);
                return 0;
            }
            have += static_cast<std::size_t>(n);
        }
        char buffer[65536];
        for (;;) {
            const ssize_t n = ::read(fd, buffer, sizeof buffer);
            if (n < 0) {
                if (errno == EINTR)
                    continue;
                return errno;
            }
            if (n == 0)
                return 0;
            // The file may grow while it is read.
            if (out.size() + static_cast<std::size_t>(n) > maxBytes)
                return EFBIG;
            out.append(buffer, static_cast<std::size_t>(n));
        }
    }

    int SetOwnerAndMode(int descriptor, std::uint32_t owner, std::uint32_t group,
                        std::uint32_t mode) override {
        struct stat st {};
        if (::fstat(descriptor, &st) != 0)
            return errno;
        // Only the superuser may give a file away; anyone else keeps what the system allows.
        if ((st.st_uid != owner || st.st_gid != group) && ::fchown(descriptor, owner, group) != 0 &&
            errno != EPERM) {
            return errno;
        }
        return ::fchmod(descriptor, mode & 07777) == 0 ? 0 : errno;
    }

    int OpenLockFile(const std::string& path, int& descriptor) override {
        const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
        if (fd < 0)
            return errno;
        descriptor = fd;
        return 0;
    }

    int LockExclusive(int descriptor, bool wait) override {
        while (::flock(descriptor, LOCK_EX | (wait ? 0 : LOCK_NB)) != 0) {
            if (errno != EINTR)
                return errno;
        }
        return 0;
    }

    int LinkStatus(const std::string& path, FileStatus& out) override {
        struct stat st {};
        if (::lstat(path.c_str(), &st) != 0)
            return errno;
        FillStatus(st, out);
        return 0;
    }

    std::uint32_t UserId() override { return static_cast<std::uint32_t>(::geteuid()); }

    int MakePrivateFolder(const std::string& path) override {
        if (::mkdir(path.c_str(), 0700) != 0)
            return errno;
        // A umask can only take bits away; one that took the owner's would leave it unusable.
        return ::chmod(path.c_str(), 0700) == 0 ? 0 : errno;
    }

    int CreatePrivateFile(const std::string& path, int& descriptor) override {
        const int fd =
            ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0)
            return errno;
        if (::fchmod(fd, 0600) != 0) {
            const int err = errno;
            ::close(fd);
            return err;
        }
        descriptor = fd;
        return 0;
    }

    int RemoveFolder(const std::string& path) override {
        return ::rmdir(path.c_str()) == 0 ? 0 : errno;
    }

    bool ProcessExists(std::uint32_t process) override {
        return ::kill(static_cast<pid_t>(process), 0) == 0 || errno != ESRCH;
    }

    std::uint32_t ProcessId() override { return static_cast<std::uint32_t>(::getpid()); }
    bool IsTerminal(int descriptor) override { return ::isatty(descriptor) == 1; }

    int OpenFileForWriting(const std::string& path, int& descriptor) override {
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        if (fd < 0)
            return errno;
        descriptor = fd;
        return 0;
    }

    int MapFile(const std::string& path, std::unique_ptr<const MappedFile>& out) override {
        // Without O_NONBLOCK, opening a FIFO that no one writes to would wait for ever.
        const int fd =
            ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        if (fd < 0)
            return errno;
        struct stat st {};
        int err = ::fstat(fd, &st) == 0 ? 0 : errno;
        if (err == 0 && !S_ISREG(st.st_mode))
            err = S_ISDIR(st.st_mode) ? EISDIR : ENODEV;
        void* address = nullptr;
        const auto size = static_cast<std::size_t>(st.st_size);
        if (err == 0 && size != 0) {
            address = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
            if (address == MAP_FAILED)
                err = errno;
        }
        ::close(fd);
        if (err == 0)
            out = std::make_unique<MappedRegion>(address, size);
        return err;
    }
};

RealSystemImpl& RealInstance() {
    static RealSystemImpl instance;
    return instance;
}

std::atomic<ISystem*>& Current() {
    static std::atomic<ISystem*> current{&RealInstance()};
    return current;
}

}  // namespace

bool FileStatus::IsFolder() const noexcept {
    return S_ISDIR(mode);
}
bool FileStatus::IsRegularFile() const noexcept {
    return S_ISREG(mode);
}

ISystem::~ISystem() = default;
MappedFile::~MappedFile() = default;
void MappedFile::Release(std::string_view) const noexcept {}

int ISystem::ReadRegularFile(const std::string& path, std::uint64_t maxBytes, std::string& out) {
    return RealInstance().ReadRegularFile(path, maxBytes, out);
}

int ISystem::SetOwnerAndMode(int descriptor, std::uint32_t owner, std::uint32_t group,
                             std::uint32_t mode) {
    return RealInstance().SetOwnerAndMode(descriptor, owner, group, mode);
}

int ISystem::OpenLockFile(const std::string& path, int& descriptor) {
    return RealInstance().OpenLockFile(path, descriptor);
}

int ISystem::LockExclusive(int descriptor, bool wait) {
    return RealInstance().LockExclusive(descriptor, wait);
}

int ISystem::LinkStatus(const std::string& path, FileStatus& out) {
    return RealInstance().LinkStatus(path, out);
}

std::uint32_t ISystem::UserId() {
    return RealInstance().UserId();
}

int ISystem::MakePrivateFolder(const std::string& path) {
    return RealInstance().MakePrivateFolder(path);
}

int ISystem::CreatePrivateFile(const std::string& path, int& descriptor) {
    return RealInstance().CreatePrivateFile(path, descriptor);
}

int ISystem::RemoveFolder(const std::string& path) {
    return RealInstance().RemoveFolder(path);
}

bool ISystem::ProcessExists(std::uint32_t process) {
    return RealInstance().ProcessExists(process);
}

std::uint32_t ISystem::ProcessId() {
    return RealInstance().ProcessId();
}

bool ISystem::IsTerminal(int descriptor) {
    return RealInstance().IsTerminal(descriptor);
}

ISystem& System() {
    return *Current().load(std::memory_order_acquire);
}

ISystem& RealSystem() {
    return RealInstance();
}

ScopedSystemOverride::ScopedSystemOverride(ISystem& replacement)
    : m_previous(Current().exchange(&replacement, std::memory_order_acq_rel)) {}

ScopedSystemOverride::~ScopedSystemOverride() {
    Current().store(m_previous, std::memory_order_release);
}

std::string ErrorText(int error) {
    char buffer[256];
    // The GNU strerror_r returns the text, which may or may not be in the buffer.
    return ::strerror_r(error, buffer, sizeof buffer);
}

}  // namespace Velmora::os
