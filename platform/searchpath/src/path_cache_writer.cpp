// Writing the path cache: the format is in path_cache_format.hpp.

#include <velmora/searchpath/path_cache.hpp>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <stdexcept>

#include <fmt/format.h>

#include <fl/filesystem/path.hpp>

#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>
#include <velmora/pathmanagement/cache_and_notify.hpp>
#include <velmora/text/ustring.hpp>

#include "file_table.hpp"
#include "path_cache_format.hpp"

namespace Velmora::SearchPath {

using foundation::storage::vfs::AbsoluteIRI;
using namespace path_cache_internal;

namespace {

std::int64_t NowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

class Encoder {
  public:
    explicit Encoder(std::int64_t writtenAtNs) : m_writtenAtNs(writtenAtNs) {}

    void Main(const FolderEntry& entry) {
        FolderRecord record = Record(entry, kNoParent, 0);
        Text(entry.GetAbsoluteIRI().toString(), record.locationOffset, record.locationLength);
        Text(entry.GetCanonicalAbsoluteIRI().toString(), record.canonicalOffset,
             record.canonicalLength);
        Tree(entry, std::move(record));
    }

    std::string Finish(const AbsoluteIRI& root) const {
        const ustring& rootText = root.toString();
        const std::string rootBytes(reinterpret_cast<const char*>(rootText.data()),
                                    rootText.size() * sizeof(char16_t));
        std::string folders;
        Put(folders, static_cast<std::uint32_t>(m_records.size()));
        folders.append(reinterpret_cast<const char*>(m_records.data()),
                       m_records.size() * sizeof(FolderRecord));
        const std::string text(reinterpret_cast<const char*>(m_text.data()),
                               m_text.size() * sizeof(char16_t));
        const std::string_view sections[kSectionCount] = {rootBytes, text, folders, m_names};
        const SectionId ids[kSectionCount] = {kRoot, kText, kFolders, kNames};

        std::string table;
        std::uint64_t offset = sizeof(Header) + kSectionCount * sizeof(SectionEntry);
        for (std::uint32_t i = 0; i < kSectionCount; ++i) {
            Put(table, SectionEntry{ids[i], Checksum(sections[i]), offset, sections[i].size()});
            offset += sections[i].size();
        }
        Header header{};
        std::memcpy(header.magic, kMagic, sizeof kMagic);
        header.version = kVersion;
        header.byteOrder = kByteOrderMark;
        header.writtenAtNs = m_writtenAtNs;
        header.sectionCount = kSectionCount;
        std::string out;
        out.reserve(offset);
        Put(out, header);
        out += table;
        const std::uint32_t crc = Checksum(out);
        std::memcpy(out.data() + offsetof(Header, crc), &crc, sizeof crc);
        for (const auto section : sections)
            out.append(section);
        return out;
    }

  private:
    FolderRecord Record(const FolderEntry& entry, std::uint32_t parent,
                        std::uint32_t specialIndex) {
        const FolderStamp& stamp = entry.GetStamp();
        const FileTable& files = *entry.GetFileTable();
        FolderRecord r{};
        r.parent = parent;
        r.kind = static_cast<std::uint32_t>(entry.GetPathEntryType());
        r.specialIndex = specialIndex;
        r.fileCount = static_cast<std::uint32_t>(files.Names().size());
        r.specialCount = static_cast<std::uint32_t>(files.Specials().size());
        r.namesOffset = static_cast<std::uint32_t>(m_names.size());
        // A change in the same tick as the stamp could leave the stamp as it is: don't trust it.
        const bool racy =
            stamp.modifiedNs == kUnknownTime || stamp.changedNs == kUnknownTime ||
            std::max(stamp.modifiedNs, stamp.changedNs) > m_writtenAtNs - kRacyStampWindowNs;
        r.flags = racy ? 0u : std::uint32_t{kStampKnown};
        r.modifiedNs = racy ? kUnknownTime : stamp.modifiedNs;
        r.changedNs = racy ? kUnknownTime : stamp.changedNs;
        r.inode = stamp.inode;
        r.device = stamp.device;
        r.size = stamp.size;
        for (const ustring& name : files.Names())
            Name(text::ToNative(name));
        for (const SpecialChild& special : files.Specials()) {
            m_names.push_back(static_cast<char>(special.kind));
            m_names.push_back(special.throughLink ? 1 : 0);
            Name(special.nativeName);
        }
        return r;
    }

    void Tree(const FolderEntry& entry, FolderRecord record) {
        const auto self = static_cast<std::uint32_t>(m_records.size());
        m_records.push_back(record);
        const auto& specials = entry.GetFileTable()->Specials();
        std::size_t next = 0;
        for (const auto& sub : entry.SubEntries()) {
            // Sub-entries follow the specials' order; some specials may have failed to scan.
            const ustring& name = sub->GetFolderNames().back();
            while (next < specials.size() && specials[next].name != name)
                ++next;
            if (next == specials.size())
                throw std::logic_error("sub-entry without its special subfolder");
            FolderRecord child = Record(*sub, self, static_cast<std::uint32_t>(next));
            if (specials[next].throughLink) {
                child.flags |= kThroughLink;
                Text(sub->GetCanonicalAbsoluteIRI().toString(), child.canonicalOffset,
                     child.canonicalLength);
            }
            Tree(*sub, child);
            ++next;
        }
    }

    void Name(std::string_view bytes) {
        if (bytes.size() > UINT16_MAX)
            throw std::length_error("name too long for the path cache");
        Put(m_names, static_cast<std::uint16_t>(bytes.size()));
        m_names.append(bytes);
    }

    void Text(const ustring& text, std::uint32_t& offset, std::uint32_t& length) {
        offset = static_cast<std::uint32_t>(m_text.size());
        length = static_cast<std::uint32_t>(text.size());
        m_text += text;
    }

    std::int64_t m_writtenAtNs;
    std::vector<FolderRecord> m_records;
    ustring m_text;
    std::string m_names;
};

}  // namespace

PathCacheFactory::PathCacheFactory(FolderEntryList mainEntries, std::int64_t writtenAtNs)
    : m_mains(std::move(mainEntries)), m_writtenAtNs(writtenAtNs != 0 ? writtenAtNs : NowNs()) {}

std::string PathCacheFactory::Encode(const AbsoluteIRI& root) const {
    Encoder encoder(m_writtenAtNs);
    for (const auto& main : m_mains) {
        if (main)
            encoder.Main(*main);
    }
    return encoder.Finish(root);
}

void PathCacheFactory::WriteCache(foundation::storage::vfs::ofstream& stream,
                                  const AbsoluteIRI& root) const {
    const std::string bytes = Encode(root);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.flush();
}

void SavePathCache(const AbsoluteIRI& cacheFile, const AbsoluteIRI& root,
                   const FolderEntryList& mainEntries) {
    const std::string native = text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(cacheFile));
    const auto slash = native.rfind('/');
    if (slash != std::string::npos && slash != 0) {
        if (const int err = os::System().MakeFolders(native.substr(0, slash)); err != 0) {
            throw foundation::storage::vfs::Exception(
                fmt::format("cannot create the folder of {}: {}", native, os::ErrorText(err)), err);
        }
    }
    // A name of this process's own, so that two writers never share a temporary file.
    const std::string temporary =
        fmt::format("{}.{:x}.tmp", native, static_cast<std::uint64_t>(NowNs()));
    const AbsoluteIRI temporaryIri = foundation::storage::vfs::toAbsoluteIRI(
        u"file", fl::filesystem::path(text::FromNative(temporary)));
    PathManagement::WriteToolboxPathCache(temporaryIri, root, PathCacheFactory(mainEntries));
    if (const int err = os::System().Rename(temporary, native); err != 0) {
        os::System().RemoveFile(temporary);
        throw foundation::storage::vfs::Exception(
            fmt::format("cannot save {}: {}", native, os::ErrorText(err)), err);
    }
}

std::string DefaultPathCacheFolder() {
    if (const char* cache = std::getenv("XDG_CACHE_HOME"); cache != nullptr && *cache == '/')
        return std::string(cache) + "/vpath";
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0')
        return std::string(home) + "/.cache/vpath";
    return {};
}

std::string PathCacheFileName(std::u16string_view key) {
    // Two independent 64-bit hashes: a clash would need both to collide.
    std::uint64_t a = 0xCBF29CE484222325ull;
    std::uint64_t b = 0x84222325CBF29CE4ull;
    for (const char16_t c : key) {
        a = (a ^ c) * 0x100000001B3ull;
        b = (b ^ c) * 0x9E3779B97F4A7C15ull;
        b ^= b >> 29;
    }
    return fmt::format("{:016x}{:016x}.cache", a, b);
}

namespace {

bool SameTree(const FolderEntry& a, const FolderEntry& b) {
    if (&a == &b)
        return true;
    const auto names = [](const FolderEntry& e) { return e.GetFileNames(); };
    return a.GetPathEntryType() == b.GetPathEntryType() && a.GetStamp() == b.GetStamp() &&
           a.GetAbsoluteIRI() == b.GetAbsoluteIRI() &&
           a.GetCanonicalAbsoluteIRI().getIRI() == b.GetCanonicalAbsoluteIRI().getIRI() &&
           std::ranges::equal(names(a), names(b)) &&
           std::ranges::equal(a.GetFileTable()->Specials(), b.GetFileTable()->Specials(),
                              [](const SpecialChild& x, const SpecialChild& y) {
                                  return x.nativeName == y.nativeName && x.kind == y.kind &&
                                         x.throughLink == y.throughLink;
                              }) &&
           SameEntries(a.SubEntries(), b.SubEntries());
}

}  // namespace

bool SameEntries(const FolderEntryList& a, const FolderEntryList& b) {
    return std::ranges::equal(
        a, b, [](const auto& x, const auto& y) { return x == y || (x && y && SameTree(*x, *y)); });
}

}  // namespace Velmora::SearchPath
