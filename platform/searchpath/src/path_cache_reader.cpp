// Reading the path cache: every offset, length and count is checked before it is used, so that
// any bytes at all give either the entries that were saved or nothing.

#include <velmora/searchpath/path_cache.hpp>

#include <algorithm>
#include <cstddef>

#include <fmt/format.h>

#include <foundation/log/diagnostic_logger.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>
#include <velmora/text/ustring.hpp>

#include "file_table.hpp"
#include "path_cache_format.hpp"

namespace Velmora::SearchPath {

using foundation::storage::vfs::AbsoluteIRI;
using foundation::storage::vfs::CanonicalAbsoluteIRI;
using namespace path_cache_internal;

namespace {

foundation::log::DiagnosticLogger& CacheLog() {
    static foundation::log::DiagnosticLogger log("platform::searchpath::cache");
    return log;
}

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
        Need(2);
        const auto length = Get<std::uint16_t>(m_names, m_at);
        m_at += 2;
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
    Decoder(std::string_view bytes, const AbsoluteIRI& root) : m_bytes(bytes) {
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
        const std::size_t tableEnd = sizeof(Header) + kSectionCount * sizeof(SectionEntry);
        if (bytes.size() < tableEnd)
            Bad("section table truncated");
        std::string headerBytes(bytes.substr(0, tableEnd));
        std::memset(headerBytes.data() + offsetof(Header, crc), 0, sizeof(std::uint32_t));
        if (Checksum(headerBytes) != header.crc)
            Bad("header checksum");
        for (std::uint32_t i = 0; i < kSectionCount; ++i) {
            const auto entry = Get<SectionEntry>(bytes, sizeof(Header) + i * sizeof(SectionEntry));
            if (entry.id != i + 1 || entry.offset > bytes.size() ||
                entry.size > bytes.size() - entry.offset) {
                Bad("section out of range");
            }
            m_sections[i] = bytes.substr(entry.offset, entry.size);
            if (Checksum(m_sections[i]) != entry.crc)
                Bad(fmt::format("section {} checksum", entry.id));
        }
        const ustring& rootText = root.toString();
        if (Section(kRoot) != std::string_view(reinterpret_cast<const char*>(rootText.data()),
                                               rootText.size() * sizeof(char16_t))) {
            Bad("written for another root");
        }
        if (Section(kText).size() % sizeof(char16_t) != 0)
            Bad("text section misaligned");
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
        m_nodes.resize(count);
        for (std::uint32_t i = 0; i < count; ++i)
            Read(i, Get<FolderRecord>(folders, 4 + std::size_t{i} * sizeof(FolderRecord)));
        // Children follow their parents, so building from the last record up makes every
        // sub-entry before the entry that holds it.
        for (std::uint32_t i = count; i-- > 0;) {
            Node& node = m_nodes[i];
            std::reverse(node.subs.begin(), node.subs.end());
            auto entry = std::make_shared<const FolderEntry>(
                FolderEntry::Parts{node.location, node.canonical, node.kind, node.stamp,
                                   std::move(node.files), std::move(node.subs)});
            if (node.parent == kNoParent) {
                m_mains.push_back(std::move(entry));
            } else {
                m_nodes[node.parent].subs.push_back(std::move(entry));
            }
        }
        std::reverse(m_mains.begin(), m_mains.end());
        return std::move(m_mains);
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

    std::string_view Section(SectionId id) const { return m_sections[id - 1]; }

    ustring Text(std::uint32_t offset, std::uint32_t length) const {
        const std::string_view text = Section(kText);
        const std::size_t units = text.size() / sizeof(char16_t);
        if (length == 0 || offset > units || length > units - offset)
            Bad("text out of range");
        ustring out(length, u'\0');
        std::memcpy(out.data(), text.data() + std::size_t{offset} * sizeof(char16_t),
                    std::size_t{length} * sizeof(char16_t));
        return out;
    }

    void Read(std::uint32_t index, const FolderRecord& r) {
        if (!ValidKind(r.kind) || (r.flags & ~std::uint32_t{kStampKnown | kThroughLink}) != 0)
            Bad("bad folder record");
        Node& node = m_nodes[index];
        node.parent = r.parent;
        node.lastSpecial = kNoParent;
        node.kind = static_cast<PathEntryType>(r.kind);
        node.stamp = (r.flags & kStampKnown)
                         ? FolderStamp{r.modifiedNs, r.changedNs, r.inode, r.device, r.size}
                         : FolderStamp{kUnknownTime, kUnknownTime, r.inode, r.device, r.size};
        if (r.parent == kNoParent) {
            if (node.kind != PathEntryType::Ordinary || (r.flags & kThroughLink))
                Bad("bad main entry");
            const ustring location = Text(r.locationOffset, r.locationLength);
            node.location = AbsoluteIRI(location);
            if (node.location.toString() != location)
                Bad("location not in normal form");
            node.canonical = CanonicalAbsoluteIRI(
                AbsoluteIRI(Text(r.canonicalOffset, r.canonicalLength)), location);
        } else {
            if (r.parent >= index)
                Bad("parent after child");
            Node& parent = m_nodes[r.parent];
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
        }
        node.files = Files(r, node);
    }

    std::shared_ptr<const FileTable> Files(const FolderRecord& r, const Node& node) const {
        const std::string_view names = Section(kNames);
        NameReader reader(names, r.namesOffset);
        // Each name takes two bytes at least: a count larger than that is a lie.
        if (r.fileCount > names.size() / 2 || r.specialCount > names.size() / 4)
            Bad("name count");
        std::vector<ustring> files;
        files.reserve(r.fileCount);
        for (std::uint32_t i = 0; i < r.fileCount; ++i)
            files.push_back(text::FromNative(reader.Name()));
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
        return FileTable::Make(node.location, std::move(files), std::move(specials));
    }

    std::string_view m_bytes;
    std::string_view m_sections[kSectionCount];
    std::vector<Node> m_nodes;
    FolderEntryList m_mains;
};

}  // namespace

FolderEntryList ParsePathCache(std::string_view bytes, const AbsoluteIRI& root, std::string& why) {
    try {
        return Decoder(bytes, root).Entries();
    } catch (const BadCache& bad) {
        why = bad.why;
    } catch (const foundation::storage::vfs::Exception& e) {
        why = e.what();  // a saved location that is not a valid IRI
    }
    return {};
}

FolderEntryList LoadPathCache(const AbsoluteIRI& cacheFile, const AbsoluteIRI& root) {
    std::string native;
    try {
        native = text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(cacheFile));
    } catch (const foundation::storage::vfs::Exception&) {
        return {};
    }
    std::unique_ptr<const os::MappedFile> mapped;
    std::string why;
    if (const int err = os::System().MapFile(native, mapped); err != 0) {
        why = os::ErrorText(err);
    } else if (auto entries = ParsePathCache(mapped->Bytes(), root, why); !entries.empty()) {
        return entries;
    } else if (why.empty()) {
        return entries;  // a cache of an empty path
    }
    if (CacheLog().IsEnabled(foundation::log::Level::Debug)) {
        CacheLog().Write(foundation::log::Level::Debug,
                         fmt::format("path cache {} not used: {}", native, why));
    }
    return {};
}

}  // namespace Velmora::SearchPath
