// Reading the path cache: every offset, length and count is checked before it is used, so that
// any bytes at all give either the entries that were saved or nothing.

#include <velmora/searchpath/path_cache.hpp>

#include <algorithm>
#include <cstddef>
#include <future>
#include <mutex>
#include <optional>
#include <utility>

#include <fmt/format.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <foundation/log/diagnostic_logger.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>
#include <velmora/text/ustring.hpp>

#include "path_cache_format.hpp"
#include "path_cache_image.hpp"
#include "scan/file_table.hpp"

namespace Velmora::SearchPath {

using foundation::storage::vfs::AbsoluteIRI;
using foundation::storage::vfs::CanonicalAbsoluteIRI;
using namespace path_cache_internal;

namespace {

foundation::log::DiagnosticLogger& CacheLog() {
    static foundation::log::DiagnosticLogger log("platform::searchpath::cache");
    return log;
}

// Larger than any cache a path of folders makes.
constexpr std::uint64_t kMostCacheBytes = std::uint64_t{1} << 34;

struct BadCache {
    std::string why;
};

[[noreturn]] void Bad(std::string why) {
    throw BadCache{std::move(why)};
}

bool ValidKind(std::uint32_t kind) {
    return kind <= 5 && kind != 4;
}

// A cursor over the names of one folder.
class NameReader {
  public:
    NameReader(std::string_view names, std::uint32_t offset) : m_names(names), m_at(offset) {
        if (offset > names.size())
            Bad("names out of range");
    }
    std::uint8_t Byte() {
        Need(1);
        return static_cast<std::uint8_t>(m_names[m_at++]);
    }
    std::string_view Name() {
        Need(1);
        const auto length = static_cast<std::uint8_t>(m_names[m_at++]);
        Need(length);
        const auto name = m_names.substr(m_at, length);
        m_at += length;
        if (name.empty() || name.find('/') != std::string_view::npos ||
            name.find('\0') != std::string_view::npos || name == "." || name == "..") {
            Bad("not a file name");
        }
        return name;
    }

  private:
    void Need(std::size_t n) const {
        if (m_names.size() - m_at < n)
            Bad("names truncated");
    }
    std::string_view m_names;
    std::size_t m_at;
};

class Decoder {
  public:
    Decoder(std::shared_ptr<CacheImage> image, const AbsoluteIRI& root,
            const std::vector<AbsoluteIRI>& folders)
        : m_image(std::move(image)), m_bytes(m_image->Bytes()), m_folders(folders) {
        const std::string_view bytes = m_bytes;
        if (bytes.size() < sizeof(Header))
            Bad("shorter than its header");
        const auto header = Get<Header>(bytes, 0);
        if (std::memcmp(header.magic, kMagic, sizeof kMagic) != 0)
            Bad("not a path cache");
        if (header.byteOrder != kByteOrderMark)
            Bad("another byte order");
        if (header.version != kVersion)
            Bad(fmt::format("version {}, not {}", header.version, kVersion));
        if (header.sectionCount != kSectionCount)
            Bad("unexpected sections");
        if (bytes.size() < kTableEnd)
            Bad("section table truncated");
        std::string headerBytes(bytes.substr(0, kTableEnd));
        std::memset(headerBytes.data() + offsetof(Header, checksum), 0, sizeof(std::uint64_t));
        if (Checksum(headerBytes) != header.checksum)
            Bad("header checksum");
        for (std::uint32_t i = 0; i < kSectionCount; ++i) {
            const auto entry = Get<SectionEntry>(bytes, sizeof(Header) + i * sizeof(SectionEntry));
            if (entry.id != i + 1 || entry.offset > bytes.size() ||
                entry.size > bytes.size() - entry.offset) {
                Bad("section out of range");
            }
            m_sections[i] = bytes.substr(entry.offset, entry.size);
            if (Verified(m_sections[i], entry.id == kNames || entry.id == kIndex) !=
                entry.checksum) {
                Bad(fmt::format("section {} checksum", entry.id));
            }
        }
        const ustring& rootText = root.toString();
        if (Section(kRoot) != std::string_view(reinterpret_cast<const char*>(rootText.data()),
                                               rootText.size() * sizeof(char16_t))) {
            Bad("written for another root");
        }
    }

    FolderEntryList Entries() {
        const std::string_view folders = Section(kFolders);
        if (folders.size() < 4)
            Bad("folder section truncated");
        const auto count = Get<std::uint32_t>(folders, 0);
        if ((folders.size() - 4) / sizeof(FolderRecord) != count ||
            (folders.size() - 4) % sizeof(FolderRecord) != 0) {
            Bad("folder count");
        }
        if (!m_image->SetIndex(Section(kNames), Section(kIndex), count))
            Bad("name index");
        // Each main entry's tree is a run of records that starts with the main entry; the trees
        // are read side by side.
        std::vector<std::uint32_t> starts;
        for (std::uint32_t i = 0; i < count; ++i) {
            if (Record(i).parent == kNoParent)
                starts.push_back(i);
        }
        if (count != 0 && (starts.empty() || starts.front() != 0))
            Bad("parent after child");
        starts.push_back(count);
        FolderEntryList mains(starts.size() - 1);
        tbb::parallel_for(tbb::blocked_range<std::size_t>(0, mains.size()), [&](const auto& trees) {
            std::vector<Node> nodes;
            std::ptrdiff_t skew = 0;
            for (std::size_t t = trees.begin(); t != trees.end(); ++t)
                mains[t] = Tree(starts[t], starts[t + 1], nodes, t, skew);
        });
        // Nothing reads the folders and texts again, nor the special subfolders that were read
        // from among the file names.
        for (const SectionId read : {kText, kFolders, kNames})
            m_image->Release(Section(read));
        return mains;
    }

  private:
    // Verified: the checksum of a section. The file names and their index are most of a cache,
    // and a start reads few of them: once checked, a piece at a time, their memory is given back
    // (`release`), so that a start holds little more than its folders.
    std::uint64_t Verified(std::string_view section, bool release) const {
        if (!release)
            return Checksum(section);
        constexpr std::size_t kPiece = std::size_t{1} << 22;
        XXH3_state_t state;
        XXH3_64bits_reset(&state);
        for (std::size_t at = 0; at < section.size(); at += kPiece) {
            const std::string_view piece = section.substr(at, kPiece);
            XXH3_64bits_update(&state, piece.data(), piece.size());
            m_image->Release(piece);
        }
        return XXH3_64bits_digest(&state);
    }

    FolderRecord Record(std::uint32_t i) const {
        return Get<FolderRecord>(Section(kFolders), 4 + std::size_t{i} * sizeof(FolderRecord));
    }

  private:
    struct Node {
        std::uint32_t parent;
        std::uint32_t lastSpecial;  // the special index of the newest child, to keep them ordered
        AbsoluteIRI location;
        CanonicalAbsoluteIRI canonical;
        PathEntryType kind;
        FolderStamp stamp;
        std::shared_ptr<const FileTable> files;
        FolderEntryList subs;
    };

    // Tree: the main entry of records [first, last), a main entry and its tree, read with `nodes`
    // as room for the records of the tree.
    // `tree` is the tree's place among the trees; `skew` how far the path's folders have run
    // ahead of the trees so far (a folder without an entry, say).
    std::shared_ptr<const FolderEntry> Tree(std::uint32_t first, std::uint32_t last,
                                            std::vector<Node>& nodes, std::size_t tree,
                                            std::ptrdiff_t& skew) const {
        nodes.clear();
        nodes.resize(last - first);
        ReadMain(first, Record(first), nodes.front(), tree, skew);
        for (std::uint32_t i = first + 1; i < last; ++i)
            Read(i, Record(i), first, nodes);
        // Children follow their parents, so building from the last record up makes every
        // sub-entry before the entry that holds it.
        for (std::uint32_t i = last; i-- > first;) {
            Node& node = nodes[i - first];
            std::reverse(node.subs.begin(), node.subs.end());
            auto entry = std::make_shared<const FolderEntry>(
                FolderEntry::Parts{std::move(node.location), std::move(node.canonical), node.kind,
                                   node.stamp, std::move(node.files), std::move(node.subs)});
            if (i == first)
                return entry;
            nodes[node.parent - first].subs.push_back(std::move(entry));
        }
        return nullptr;
    }

    std::string_view Section(SectionId id) const { return m_sections[id - 1]; }

    // TextBytes: a text of kText, UTF-8 as it lies.
    std::string_view TextBytes(std::uint32_t offset, std::uint32_t length) const {
        const std::string_view text = Section(kText);
        if (length == 0 || offset > text.size() || length > text.size() - offset)
            Bad("text out of range");
        return text.substr(offset, length);
    }

    ustring Text(std::uint32_t offset, std::uint32_t length) const {
        return text::FromNative(TextBytes(offset, length));
    }

    // Whether `text` is the UTF-8 `bytes`; an ASCII text is compared unit by byte.
    static bool SameText(const ustring& text, std::string_view bytes) {
        if (text.size() == bytes.size() &&
            std::equal(text.begin(), text.end(), bytes.begin(),
                       [](char16_t u, char b) { return u == static_cast<unsigned char>(b); })) {
            return true;
        }
        return text::ToNative(text) == bytes;
    }

    // The path's folder saved at `location`, looked for where the trees read so far lead; null
    // when the path has no folder near there with that text.
    const AbsoluteIRI* FolderAt(std::string_view location, std::size_t tree,
                                std::ptrdiff_t& skew) const {
        constexpr std::ptrdiff_t kLookAhead = 8;
        for (std::ptrdiff_t ahead = 0; ahead <= kLookAhead; ++ahead) {
            const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(tree) + skew + ahead;
            if (at < 0 || at >= static_cast<std::ptrdiff_t>(m_folders.size()))
                break;
            if (SameText(m_folders[static_cast<std::size_t>(at)].toString(), location)) {
                skew += ahead;
                return &m_folders[static_cast<std::size_t>(at)];
            }
        }
        return nullptr;
    }

    void ReadMain(std::uint32_t index, const FolderRecord& r, Node& node, std::size_t tree,
                  std::ptrdiff_t& skew) const {
        if (r.parent != kNoParent)
            Bad("parent after child");
        ReadStamp(r, node);
        if (node.kind != PathEntryType::Ordinary || (r.flags & kThroughLink))
            Bad("bad main entry");
        const std::string_view location = TextBytes(r.locationOffset, r.locationLength);
        if (const AbsoluteIRI* folder = FolderAt(location, tree, skew)) {
            node.location = *folder;
        } else {
            node.location = AbsoluteIRI(Text(r.locationOffset, r.locationLength));
            if (!SameText(node.location.toString(), location))
                Bad("location not in normal form");
        }
        // Most folders are their own canonical location: one IRI serves for both.
        const bool ownCanonical = TextBytes(r.canonicalOffset, r.canonicalLength) == location;
        node.canonical = CanonicalAbsoluteIRI(
            ownCanonical ? node.location : AbsoluteIRI(Text(r.canonicalOffset, r.canonicalLength)),
            node.location.toString());
        node.files = Files(index, r, node);
    }

    void ReadStamp(const FolderRecord& r, Node& node) const {
        if (!ValidKind(r.kind) || (r.flags & ~std::uint32_t{kStampKnown | kThroughLink}) != 0)
            Bad("bad folder record");
        node.parent = r.parent;
        node.lastSpecial = kNoParent;
        node.kind = static_cast<PathEntryType>(r.kind);
        node.stamp = (r.flags & kStampKnown)
                         ? FolderStamp{r.modifiedNs, r.changedNs, r.inode, r.device, r.size, 0}
                         : FolderStamp{kUnknownTime, kUnknownTime, r.inode, r.device, r.size, 0};
    }

    // Read: a sub-entry's record.
    void Read(std::uint32_t index, const FolderRecord& r, std::uint32_t treeStart,
              std::vector<Node>& nodes) const {
        Node& node = nodes[index - treeStart];
        ReadStamp(r, node);
        if (r.parent >= index || r.parent < treeStart)
            Bad("parent after child");
        Node& parent = nodes[r.parent - treeStart];
        if (parent.lastSpecial != kNoParent && r.specialIndex <= parent.lastSpecial)
            Bad("sub-entries out of order");
        const auto* special = parent.files->Specials().size() > r.specialIndex
                                  ? &parent.files->Specials()[r.specialIndex]
                                  : nullptr;
        if (!special || special->kind != node.kind ||
            special->throughLink != ((r.flags & kThroughLink) != 0)) {
            Bad("sub-entry does not match its special subfolder");
        }
        parent.lastSpecial = r.specialIndex;
        node.location = parent.location.getChild(special->name);
        node.canonical =
            special->throughLink
                ? CanonicalAbsoluteIRI(AbsoluteIRI(Text(r.canonicalOffset, r.canonicalLength)),
                                       node.location.toString())
                : CanonicalAbsoluteIRI(parent.canonical.getIRI().getChild(special->name),
                                       node.location.toString());
        node.files = Files(index, r, node);
    }

    std::shared_ptr<const FileTable> Files(std::uint32_t index, const FolderRecord& r,
                                           const Node& node) const {
        const std::string_view names = Section(kNames);
        // Each name takes two bytes at least, and each special subfolder four: a count larger
        // than that is a lie.
        if (r.filesOffset > names.size() || r.filesBytes > names.size() - r.filesOffset ||
            r.fileCount > r.filesBytes / 2 || r.specialCount > names.size() / 4) {
            Bad("name count");
        }
        NameReader reader(names, r.filesOffset + r.filesBytes);
        std::vector<SpecialChild> specials;
        specials.reserve(r.specialCount);
        for (std::uint32_t i = 0; i < r.specialCount; ++i) {
            const auto kind = reader.Byte();
            const auto throughLink = reader.Byte();
            const std::string_view native = reader.Name();
            ustring name = text::FromNative(native);
            if (!ValidKind(kind) || throughLink > 1 ||
                PathManagement::GetPathEntryTypeFromBaseName(name) !=
                    static_cast<PathEntryType>(kind) ||
                static_cast<PathEntryType>(kind) == PathEntryType::Ordinary ||
                (!specials.empty() && !(specials.back().name < name))) {
                Bad("bad special subfolder");
            }
            specials.push_back(SpecialChild{std::string(native), std::move(name),
                                            static_cast<PathEntryType>(kind), throughLink == 1});
        }
        // The file names stay in the cache until the folder is asked for them.
        return FileTable::Saved(node.location, std::move(specials), m_image, index,
                                names.substr(r.filesOffset, r.filesBytes), r.fileCount);
    }

    std::shared_ptr<CacheImage> m_image;
    std::string_view m_bytes;
    std::string_view m_sections[kSectionCount];
    const std::vector<AbsoluteIRI>& m_folders;
};

FolderEntryList Decode(std::shared_ptr<CacheImage> image, const AbsoluteIRI& root, std::string& why,
                       const std::vector<AbsoluteIRI>& folders) {
    try {
        return Decoder(std::move(image), root, folders).Entries();
    } catch (const BadCache& bad) {
        why = bad.why;
    } catch (const foundation::storage::vfs::Exception& e) {
        why = e.what();  // a saved location that is not a valid IRI
    }
    return {};
}

}  // namespace

FolderEntryList ParsePathCache(std::string_view bytes, const AbsoluteIRI& root, std::string& why,
                               const std::vector<AbsoluteIRI>& folders) {
    return Decode(std::make_shared<CacheImage>(std::string(bytes)), root, why, folders);
}

struct PathCacheReadAhead::Read {
    std::string native;
    std::string bytes;      // filled by the reading thread before `done` is ready
    std::future<int> done;  // the read's error number
};

namespace {

// The reads ahead that no load has taken yet.
std::mutex& AheadMutex() {
    static std::mutex mutex;
    return mutex;
}
std::vector<std::shared_ptr<PathCacheReadAhead::Read>>& Ahead() {
    static std::vector<std::shared_ptr<PathCacheReadAhead::Read>> reads;
    return reads;
}

// What a read ahead of `native` read, once it is done; none when no read of it is under way.
std::optional<std::pair<int, std::string>> TakeReadAhead(const std::string& native) {
    std::shared_ptr<PathCacheReadAhead::Read> read;
    {
        std::lock_guard lock(AheadMutex());
        auto& reads = Ahead();
        const auto it = std::find_if(reads.begin(), reads.end(),
                                     [&](const auto& r) { return r->native == native; });
        if (it == reads.end())
            return std::nullopt;
        read = *it;
        reads.erase(it);
    }
    const int err = read->done.get();
    return std::pair{err, std::move(read->bytes)};
}

}  // namespace

PathCacheReadAhead::PathCacheReadAhead(const AbsoluteIRI& cacheFile) {
    auto read = std::make_shared<Read>();
    try {
        read->native = text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(cacheFile));
    } catch (const foundation::storage::vfs::Exception&) {
        return;
    }
    read->done = std::async(std::launch::async, [r = read.get()] {
        return os::System().ReadRegularFile(r->native, kMostCacheBytes, r->bytes);
    });
    std::lock_guard lock(AheadMutex());
    Ahead().push_back(read);
    m_read = std::move(read);
}

PathCacheReadAhead::~PathCacheReadAhead() {
    if (!m_read)
        return;
    std::size_t untaken = 0;
    {
        std::lock_guard lock(AheadMutex());
        untaken = std::erase(Ahead(), m_read);
    }
    // A load that took the bytes waited for them; otherwise the read is waited for here.
    if (untaken != 0)
        m_read->done.wait();
}

FolderEntryList LoadPathCache(const AbsoluteIRI& cacheFile, const AbsoluteIRI& root,
                              const std::vector<AbsoluteIRI>& folders, bool inMemory) {
    std::string native;
    try {
        native = text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(cacheFile));
    } catch (const foundation::storage::vfs::Exception&) {
        return {};
    }
    std::unique_ptr<const os::MappedFile> mapped;
    std::string why;
    os::FileStatus status;
    // What decides a lookup's answer must be the user's own: a checksum is no seal.
    if (const int statErr = os::System().LinkStatus(native, status); statErr != 0) {
        why = os::ErrorText(statErr);
    } else if (!status.IsRegularFile() || status.owner != os::System().UserId()) {
        why = "not a regular file of the user's";
    } else if (inMemory) {
        std::string bytes;
        int readErr = 0;
        if (auto ahead = TakeReadAhead(native)) {
            readErr = ahead->first;
            bytes = std::move(ahead->second);
        } else {
            readErr = os::System().ReadRegularFile(native, kMostCacheBytes, bytes);
        }
        if (readErr != 0) {
            why = os::ErrorText(readErr);
        } else if (auto entries =
                       Decode(std::make_shared<CacheImage>(std::move(bytes)), root, why, folders);
                   why.empty()) {
            return entries;
        }
    } else if (const int err = os::System().MapFile(native, mapped); err != 0) {
        why = os::ErrorText(err);
    } else if (auto entries =
                   Decode(std::make_shared<CacheImage>(std::move(mapped)), root, why, folders);
               why.empty()) {
        return entries;
    }
    if (CacheLog().IsEnabled(foundation::log::Level::Debug)) {
        CacheLog().Write(foundation::log::Level::Debug,
                         fmt::format("path cache {} not used: {}", native, why));
    }
    return {};
}

}  // namespace Velmora::SearchPath
