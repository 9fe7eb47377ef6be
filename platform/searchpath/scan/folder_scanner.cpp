#include <velmora/searchpath/folder_scanner.hpp>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <mutex>

#include <fmt/format.h>
#include <tbb/parallel_for.h>
#include <boost/container_hash/hash.hpp>
#include <boost/unordered/unordered_flat_set.hpp>

#include <fl/filesystem/path.hpp>
#include <foundation/log/diagnostic_logger.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>
#include <velmora/text/ustring.hpp>

#include "file_table.hpp"

namespace Velmora::SearchPath {

using foundation::storage::vfs::AbsoluteIRI;
using foundation::storage::vfs::CanonicalAbsoluteIRI;
using PathManagement::GetPathEntryTypeFromBaseName;

namespace {

std::atomic<std::uint64_t> g_foldersListed{0};

foundation::log::DiagnosticLogger& ScanLog() {
    static foundation::log::DiagnosticLogger log("platform::searchpath::scan");
    return log;
}

// Which special subfolders count beneath a folder of each kind. Resources and private folders
// hold plain files only; a class folder may have its own private folder.
bool AllowedBeneath(PathEntryType parent, PathEntryType child) {
    switch (parent) {
        case PathEntryType::Ordinary:
        case PathEntryType::PlusFolder:
            return child != PathEntryType::Ordinary;
        case PathEntryType::AtFolder:
            return child == PathEntryType::PrivateFolder;
        default:
            return false;
    }
}

ScanProblem::Kind KindOfError(int error) {
    switch (error) {
        case ENOENT:
            return ScanProblem::Kind::Missing;
        case ENOTDIR:
            return ScanProblem::Kind::NotAFolder;
        case ELOOP:
            return ScanProblem::Kind::SymlinkLoop;
        default:
            return ScanProblem::Kind::Unreadable;
    }
}

std::int64_t NowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

FolderStamp StampOf(const os::FileStatus& s) {
    return FolderStamp{s.modifiedNs, s.changedNs, s.inode, s.device, s.size, 0};
}

struct FolderId {
    std::uint64_t device;
    std::uint64_t inode;
    friend bool operator==(const FolderId&, const FolderId&) = default;
    friend std::size_t hash_value(const FolderId& id) {
        return boost::hash_value(std::pair(id.device, id.inode));
    }
};

// One scan of one main entry's tree, on one thread.
class TreeScan {
  public:
    TreeScan(const EntryCache* cache, std::vector<ScanProblem>& problems)
        : m_cache(cache), m_problems(problems) {}

    // Main: the entry of a folder put on the path; its real location is resolved first.
    std::shared_ptr<const FolderEntry> Main(const AbsoluteIRI& location,
                                            const std::string& native) {
        os::FileStatus status;
        // Looked up once: a lookup may search every entry the cache holds.
        const auto cached = m_cache ? m_cache->Find(location, PathEntryType::Ordinary) : nullptr;
        if (cached && SameFolder(*cached, native, status)) {
            return Folder(location, native, cached->GetCanonicalAbsoluteIRI(),
                          PathEntryType::Ordinary, &status, &cached);
        }
        std::string resolved;
        if (const int err = os::System().RealPath(native, resolved); err != 0) {
            return Fail(location, err);
        }
        const CanonicalAbsoluteIRI canonical(
            foundation::storage::vfs::toAbsoluteIRI(
                u"file", fl::filesystem::path(text::FromNative(resolved))),
            location.toString());
        return Folder(location, native, canonical, PathEntryType::Ordinary, nullptr, &cached);
    }

    // `lookedUp`, when given, is what the cache holds at the location for the kind.
    std::shared_ptr<const FolderEntry> Folder(
        const AbsoluteIRI& location, const std::string& native,
        const CanonicalAbsoluteIRI& canonical, PathEntryType kind,
        const os::FileStatus* known = nullptr,
        const std::shared_ptr<const FolderEntry>* lookedUp = nullptr) {
        const auto cached = lookedUp != nullptr ? *lookedUp
                            : m_cache           ? m_cache->Find(location, kind)
                                                : nullptr;
        std::shared_ptr<const FileTable> files;
        FolderStamp stamp;
        if (cached) {
            os::FileStatus status;
            if (known) {
                status = *known;
            } else if (const int err = os::System().Stat(native, status); err != 0) {
                return Fail(location, err);
            }
            if (!status.IsFolder())
                return Fail(location, ENOTDIR);
            stamp = StampOf(status);
            if (stamp == cached->GetStamp()) {
                files = cached->GetFileTable();
                stamp.listedNs = cached->GetStamp().listedNs;  // still that listing's stamp
            }
        }
        if (!files) {
            os::FolderListing listing;
            const std::int64_t listedNs = NowNs();
            g_foldersListed.fetch_add(1, std::memory_order_relaxed);
            if (const int err = os::System().ListFolder(native, listing); err != 0) {
                return Fail(location, err);
            }
            stamp = StampOf(listing.status);
            stamp.listedNs = listedNs;
            files = Read(location, native, kind, listing);
        }
        if (InChain(stamp)) {
            Report(ScanProblem{ScanProblem::Kind::SymlinkLoop, location, ELOOP});
            return nullptr;
        }
        // Links that branch without looping can reach one folder by exponentially many ways; each
        // real folder is read once, under the first name met, which keeps a scan linear.
        if (!m_visited.insert(FolderId{stamp.device, stamp.inode}).second) {
            Report(ScanProblem{ScanProblem::Kind::Duplicate, location, 0});
            return nullptr;
        }
        m_chain.push_back(FolderId{stamp.device, stamp.inode});
        auto subEntries = SubEntries(location, native, canonical, *files);
        m_chain.pop_back();

        if (cached && cached->GetFileTable() == files && cached->GetStamp() == stamp &&
            std::equal(subEntries.begin(), subEntries.end(), cached->SubEntries().begin(),
                       cached->SubEntries().end())) {
            return cached;
        }
        return std::make_shared<const FolderEntry>(FolderEntry::Parts{
            location, canonical, kind, stamp, std::move(files), std::move(subEntries)});
    }

  private:
    // SameFolder: whether `native` and the canonical location of `cached` both still name the
    // folder that was cached (same device and inode), which makes resolving symbolic links again
    // needless. `status` is then the folder's status.
    static bool SameFolder(const FolderEntry& cached, const std::string& native,
                           os::FileStatus& status) {
        const FolderStamp& stamp = cached.GetStamp();
        auto same = [&](const os::FileStatus& s) {
            return s.IsFolder() && s.device == stamp.device && s.inode == stamp.inode;
        };
        if (os::System().Stat(native, status) != 0 || !same(status))
            return false;
        const AbsoluteIRI canonical = cached.GetCanonicalAbsoluteIRI().getIRI();
        if (canonical == cached.GetAbsoluteIRI())
            return true;
        os::FileStatus target;
        std::string canonicalNative;
        try {
            canonicalNative = text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(canonical));
        } catch (const foundation::storage::vfs::Exception&) {
            return false;
        }
        return os::System().Stat(canonicalNative, target) == 0 && same(target);
    }

    std::shared_ptr<const FileTable> Read(const AbsoluteIRI& location, const std::string& native,
                                          PathEntryType kind, const os::FolderListing& listing) {
        std::vector<ustring> files;
        std::vector<SpecialChild> specials;
        files.reserve(listing.items.size());
        for (const auto& item : listing.items) {
            auto entryKind = item.kind;
            if (entryKind == os::EntryKind::Symlink || entryKind == os::EntryKind::Unknown) {
                os::FileStatus target;
                if (os::System().Stat(native + "/" + item.name, target) != 0) {
                    continue;  // a dangling link names nothing
                }
                entryKind = target.IsFolder()        ? os::EntryKind::Folder
                            : target.IsRegularFile() ? os::EntryKind::File
                                                     : os::EntryKind::Other;
            }
            if (entryKind == os::EntryKind::File) {
                files.push_back(text::FromNative(item.name));
            } else if (entryKind == os::EntryKind::Folder) {
                ustring name = text::FromNative(item.name);
                const auto childKind = GetPathEntryTypeFromBaseName(name);
                if (AllowedBeneath(kind, childKind)) {
                    specials.push_back(SpecialChild{item.name, std::move(name), childKind,
                                                    item.kind != os::EntryKind::Folder});
                }
            }
        }
        std::sort(specials.begin(), specials.end(),
                  [](const SpecialChild& a, const SpecialChild& b) { return a.name < b.name; });
        return FileTable::Make(location, std::move(files), std::move(specials));
    }

    std::vector<std::shared_ptr<const FolderEntry>> SubEntries(
        const AbsoluteIRI& location, const std::string& native,
        const CanonicalAbsoluteIRI& canonical, const FileTable& files) {
        std::vector<std::shared_ptr<const FolderEntry>> subEntries;
        subEntries.reserve(files.Specials().size());
        for (const auto& child : files.Specials()) {
            const AbsoluteIRI childLocation = location.getChild(child.name);
            const std::string childNative = native + "/" + child.nativeName;
            CanonicalAbsoluteIRI childCanonical;
            if (child.throughLink) {
                std::string resolved;
                if (const int err = os::System().RealPath(childNative, resolved); err != 0) {
                    Fail(childLocation, err);
                    continue;
                }
                childCanonical = CanonicalAbsoluteIRI(
                    foundation::storage::vfs::toAbsoluteIRI(
                        u"file", fl::filesystem::path(text::FromNative(resolved))),
                    childLocation.toString());
            } else {
                childCanonical = CanonicalAbsoluteIRI(canonical.getIRI().getChild(child.name),
                                                      childLocation.toString());
            }
            if (auto sub = Folder(childLocation, childNative, childCanonical, child.kind)) {
                subEntries.push_back(std::move(sub));
            }
        }
        return subEntries;
    }

    bool InChain(const FolderStamp& stamp) const {
        return std::find(m_chain.begin(), m_chain.end(), FolderId{stamp.device, stamp.inode}) !=
               m_chain.end();
    }

    std::shared_ptr<const FolderEntry> Fail(const AbsoluteIRI& location, int error) {
        Report(ScanProblem{KindOfError(error), location, error});
        return nullptr;
    }

    void Report(ScanProblem problem) {
        if (ScanLog().IsEnabled(foundation::log::Level::Warn)) {
            ScanLog().Write(foundation::log::Level::Warn, problem.Describe());
        }
        m_problems.push_back(std::move(problem));
    }

    const EntryCache* m_cache;
    std::vector<ScanProblem>& m_problems;
    std::vector<FolderId> m_chain;  // the folders from the main entry down to the current one
    boost::unordered_flat_set<FolderId> m_visited;  // every folder of this tree read so far
};

}  // namespace

std::string ScanProblem::Describe() const {
    std::string where;
    try {
        where = text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(location));
    } catch (const foundation::storage::vfs::Exception&) {
        where = text::ToNative(location.toString());
    }
    switch (kind) {
        case Kind::Missing:
            return fmt::format("folder {} does not exist", where);
        case Kind::NotAFolder:
            return fmt::format("{} is not a folder", where);
        case Kind::Unreadable:
            return fmt::format("cannot read folder {}: {}", where, os::ErrorText(errorNumber));
        case Kind::SymlinkLoop:
            return fmt::format("folder {} leads back to itself through symbolic links", where);
        case Kind::Duplicate:
            return fmt::format("folder {} is already on the path", where);
    }
    return where;
}

void ScanReport::Add(ScanProblem problem) {
    m_problems.push_back(std::move(problem));
}

void ScanReport::Append(const ScanReport& other) {
    m_problems.insert(m_problems.end(), other.m_problems.begin(), other.m_problems.end());
}

namespace {

// The first entry at `location` of `kind` in the trees of `mains`, taken in order, as building the
// map would keep it.
std::shared_ptr<const FolderEntry> Search(
    const std::vector<std::shared_ptr<const FolderEntry>>& mains, const AbsoluteIRI& location,
    PathEntryType kind) {
    std::vector<const FolderEntry*> pending;
    for (const auto& main : mains) {
        if (!main)
            continue;
        // A main entry is kept as an ordinary folder, whatever its name.
        if (kind == PathEntryType::Ordinary && main->GetLocation() == location)
            return main;
        if (main->SubEntries().empty())
            continue;
        pending.push_back(main.get());
        while (!pending.empty()) {
            const FolderEntry* entry = pending.back();
            pending.pop_back();
            for (const auto& sub : entry->SubEntries()) {
                if (sub->GetPathEntryType() == kind && sub->GetLocation() == location)
                    return sub;
                pending.push_back(sub.get());
            }
        }
    }
    return nullptr;
}

// How many finds search the retained entries before the map is built: a search costs a pass over
// them, a build about three.
constexpr int kSearchesBeforeBuilding = 2;

}  // namespace

std::shared_ptr<const FolderEntry> EntryCache::Find(const AbsoluteIRI& location,
                                                    PathEntryType kind) const {
    {
        std::shared_lock lock(m_mutex);
        if (!m_pending) {
            const auto it = m_entries.find(Key{location, kind});
            return it == m_entries.end() ? nullptr : it->second;
        }
        if (m_searches.fetch_add(1, std::memory_order_relaxed) < kSearchesBeforeBuilding)
            return Search(*m_pending, location, kind);
    }
    std::unique_lock lock(m_mutex);
    Build();
    const auto it = m_entries.find(Key{location, kind});
    return it == m_entries.end() ? nullptr : it->second;
}

void EntryCache::Retain(const std::vector<std::shared_ptr<const FolderEntry>>& mainEntries) {
    // Kept as given until the first use: a command that never changes its path never needs the
    // entries by location.
    Retain(std::make_shared<const std::vector<std::shared_ptr<const FolderEntry>>>(mainEntries));
}

void EntryCache::Retain(
    std::shared_ptr<const std::vector<std::shared_ptr<const FolderEntry>>> mainEntries) {
    std::unique_lock lock(m_mutex);
    m_pending = std::move(mainEntries);
    m_searches.store(0, std::memory_order_relaxed);
}

void EntryCache::Build() const {
    if (!m_pending)
        return;
    // Where two given entries are of one folder, the first one given is kept, and so is everything
    // beneath it: each main entry's tree is taken whole before the next main entry's.
    decltype(m_entries) kept;
    std::vector<const FolderEntry*> pending;
    for (const auto& main : *m_pending) {
        if (!main)
            continue;
        kept.emplace(Key{main->GetAbsoluteIRI(), PathEntryType::Ordinary}, main);
        pending.push_back(main.get());
        while (!pending.empty()) {
            const FolderEntry* entry = pending.back();
            pending.pop_back();
            for (const auto& sub : entry->SubEntries()) {
                kept.emplace(Key{sub->GetAbsoluteIRI(), sub->GetPathEntryType()}, sub);
                pending.push_back(sub.get());
            }
        }
    }
    m_entries.swap(kept);
    m_pending.reset();
}

void EntryCache::Forget(const AbsoluteIRI& location) {
    std::unique_lock lock(m_mutex);
    Build();
    for (const auto kind :
         {PathEntryType::Ordinary, PathEntryType::PlusFolder, PathEntryType::AtFolder,
          PathEntryType::PrivateFolder, PathEntryType::ResourcesFolder}) {
        m_entries.erase(Key{location, kind});
    }
}

void EntryCache::Remember(const std::shared_ptr<const FolderEntry>& entry) {
    std::vector<const FolderEntry*> pending;
    std::unique_lock lock(m_mutex);
    Build();
    m_entries.insert_or_assign(Key{entry->GetAbsoluteIRI(), entry->GetPathEntryType()}, entry);
    pending.push_back(entry.get());
    while (!pending.empty()) {
        const FolderEntry* parent = pending.back();
        pending.pop_back();
        for (const auto& sub : parent->SubEntries()) {
            m_entries.insert_or_assign(Key{sub->GetAbsoluteIRI(), sub->GetPathEntryType()}, sub);
            pending.push_back(sub.get());
        }
    }
}

std::size_t EntryCache::size() const {
    std::unique_lock lock(m_mutex);
    Build();
    return m_entries.size();
}

std::shared_ptr<const FolderEntry> FolderScanner::ScanMainEntry(const AbsoluteIRI& location,
                                                                ScanReport& report) const {
    std::vector<ScanProblem> problems;
    std::string native;
    try {
        native = text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(location));
    } catch (const foundation::storage::vfs::Exception&) {
        // Only local folders can be scanned; another scheme names nothing here.
        report.Add(ScanProblem{ScanProblem::Kind::Missing, location, ENOENT});
        return nullptr;
    }
    TreeScan scan(m_cache, problems);
    auto entry = scan.Main(location, native);
    for (auto& p : problems)
        report.Add(std::move(p));
    return entry;
}

namespace {

// Whether the folder at `native` is still the one `entry` was read from, with the same stamp, and
// so is every sub-entry beneath it. A special subfolder reached through a symbolic link, or one
// that had no entry, asks for a scan: only a scan resolves links and reports problems.
bool Unchanged(const FolderEntry& entry, const std::string& native) {
    os::FileStatus status;
    if (os::System().Stat(native, status) != 0 || !status.IsFolder() ||
        StampOf(status) != entry.GetStamp()) {
        return false;
    }
    const auto& specials = entry.GetFileTable()->Specials();
    const auto& subs = entry.SubEntries();
    if (specials.size() != subs.size())
        return false;
    for (std::size_t k = 0; k < subs.size(); ++k) {
        if (specials[k].throughLink || subs[k]->GetPathEntryType() != specials[k].kind ||
            subs[k]->GetLocation().getName() != specials[k].name ||
            !Unchanged(*subs[k], native + "/" + specials[k].nativeName)) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool FolderScanner::Unchanged(const FolderEntry& main) {
    std::string native;
    try {
        native = text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(main.GetLocation()));
    } catch (const foundation::storage::vfs::Exception&) {
        return false;
    }
    if (!SearchPath::Unchanged(main, native))
        return false;
    // A main entry reached through a symbolic link must still lead to the same folder.
    const AbsoluteIRI canonical = main.GetCanonicalAbsoluteIRI().getIRI();
    if (canonical == main.GetLocation())
        return true;
    os::FileStatus target;
    try {
        return os::System().Stat(
                   text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(canonical)), target) ==
                   0 &&
               target.IsFolder() && target.device == main.GetStamp().device &&
               target.inode == main.GetStamp().inode;
    } catch (const foundation::storage::vfs::Exception&) {
        return false;
    }
}

std::vector<std::shared_ptr<const FolderEntry>> FolderScanner::ScanMainEntries(
    const std::vector<AbsoluteIRI>& locations, ScanReport& report) const {
    std::vector<std::shared_ptr<const FolderEntry>> entries(locations.size());
    std::vector<ScanReport> reports(locations.size());
    tbb::parallel_for(std::size_t{0}, locations.size(),
                      [&](std::size_t i) { entries[i] = ScanMainEntry(locations[i], reports[i]); });
    for (const auto& r : reports)
        report.Append(r);
    return entries;
}

std::uint64_t FoldersListed() noexcept {
    return g_foldersListed.load(std::memory_order_relaxed);
}

std::vector<AbsoluteIRI> ListOrdinarySubfolders(const AbsoluteIRI& root) {
    const std::string native = text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(root));
    os::FolderListing listing;
    if (const int err = os::System().ListFolder(native, listing); err != 0) {
        throw foundation::storage::vfs::Exception(
            fmt::format("cannot read folder {}: {}", native, os::ErrorText(err)), err);
    }
    std::vector<ustring> names;
    for (const auto& item : listing.items) {
        bool isFolder = item.kind == os::EntryKind::Folder;
        if (item.kind == os::EntryKind::Symlink || item.kind == os::EntryKind::Unknown) {
            os::FileStatus status;
            isFolder =
                os::System().Stat(native + "/" + item.name, status) == 0 && status.IsFolder();
        }
        ustring name = text::FromNative(item.name);
        if (isFolder && GetPathEntryTypeFromBaseName(name) == PathEntryType::Ordinary) {
            names.push_back(std::move(name));
        }
    }
    std::sort(names.begin(), names.end());
    std::vector<AbsoluteIRI> folders;
    folders.reserve(names.size());
    for (const auto& name : names)
        folders.push_back(root.getChild(name));
    return folders;
}

}  // namespace Velmora::SearchPath
