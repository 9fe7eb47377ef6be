// Writing the path cache: the format is in path_cache_format.hpp.

#include <velmora/searchpath/path_cache.hpp>
#include <velmora/searchpath/shared_runs.hpp>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <span>
#include <stdexcept>

#include <fmt/format.h>
#include <boost/unordered/unordered_flat_set.hpp>

#include <fl/filesystem/path.hpp>

#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>
#include <velmora/pathmanagement/cache_and_notify.hpp>
#include <velmora/text/ustring.hpp>

#include "cache_folder.hpp"
#include "path_cache_format.hpp"
#include "path_cache_image.hpp"
#include "scan/file_table.hpp"

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
    Encoder(std::int64_t writtenAtNs, std::int64_t judgedAtNs)
        : m_writtenAtNs(writtenAtNs), m_judgedAtNs(judgedAtNs) {}

    void Main(const FolderEntry& entry) {
        FolderRecord record = Record(entry, kNoParent, 0);
        const ustring& location = entry.GetLocation().toString();
        Text(location, record.locationOffset, record.locationLength);
        // A folder that is its own canonical location names the same text twice.
        const auto canonical = entry.GetCanonicalAbsoluteIRI();
        if (canonical.toString() == location) {
            record.canonicalOffset = record.locationOffset;
            record.canonicalLength = record.locationLength;
        } else {
            Text(canonical.toString(), record.canonicalOffset, record.canonicalLength);
        }
        Tree(entry, std::move(record));
    }

    // Finish: calls write(bytes) for each piece of the cache in turn, header first.
    template <class Write>
    void Finish(const AbsoluteIRI& root, Write write) const {
        const ustring& rootText = root.toString();
        const std::string_view rootBytes(reinterpret_cast<const char*>(rootText.data()),
                                         rootText.size() * sizeof(char16_t));
        std::string folders;
        Put(folders, static_cast<std::uint32_t>(m_records.size()));
        folders.append(reinterpret_cast<const char*>(m_records.data()),
                       m_records.size() * sizeof(FolderRecord));
        const std::string index = Index();
        const std::string_view sections[kSectionCount] = {rootBytes, m_text, folders, m_names,
                                                          index};
        const SectionId ids[kSectionCount] = {kRoot, kText, kFolders, kNames, kIndex};

        Header header{};
        std::memcpy(header.magic, kMagic, sizeof kMagic);
        header.version = kVersion;
        header.byteOrder = kByteOrderMark;
        header.writtenAtNs = m_writtenAtNs;
        header.sectionCount = kSectionCount;
        std::string head;
        Put(head, header);
        std::uint64_t offset = kTableEnd;
        for (std::uint32_t i = 0; i < kSectionCount; ++i) {
            Put(head, SectionEntry{ids[i], 0, Checksum(sections[i]), offset, sections[i].size()});
            offset += sections[i].size();
        }
        const std::uint64_t sum = Checksum(head);
        std::memcpy(head.data() + offsetof(Header, checksum), &sum, sizeof sum);
        write(std::string_view(head));
        for (const auto section : sections)
            write(section);
    }

  private:
    FolderRecord Record(const FolderEntry& entry, std::uint32_t parent,
                        std::uint32_t specialIndex) {
        const FolderStamp& stamp = entry.GetStamp();
        const FileTable& files = *entry.GetFileTable();
        FolderRecord r{};
        r.parent = parent;
        r.kind = static_cast<std::uint8_t>(entry.GetPathEntryType());
        r.specialIndex = specialIndex;
        r.specialCount = static_cast<std::uint32_t>(files.Specials().size());
        // A change in the same tick as the listing could leave the stamp as it is: don't trust
        // it. The moment that counts is the listing's, not this write's: a file made just after
        // the listing is not in it, however long after that the cache is written.
        const std::int64_t listedNs = m_judgedAtNs != 0 ? m_judgedAtNs : stamp.listedNs;
        const bool racy = stamp.modifiedNs == kUnknownTime || stamp.changedNs == kUnknownTime ||
                          (listedNs != 0 && std::max(stamp.modifiedNs, stamp.changedNs) >
                                                listedNs - kRacyStampWindowNs);
        r.flags = racy ? 0 : std::uint8_t{kStampKnown};
        r.modifiedNs = racy ? kUnknownTime : stamp.modifiedNs;
        r.changedNs = racy ? kUnknownTime : stamp.changedNs;
        r.inode = stamp.inode;
        r.device = stamp.device;
        r.size = stamp.size;
        r.filesOffset = Offset();
        r.fileCount = static_cast<std::uint32_t>(Files(files));
        r.filesBytes = Offset() - r.filesOffset;
        for (const SpecialChild& special : files.Specials()) {
            m_names.push_back(static_cast<char>(special.kind));
            m_names.push_back(special.throughLink ? 1 : 0);
            Name(special.nativeName);
        }
        if (entry.GetPathEntryType() != PathEntryType::ResourcesFolder)
            m_indexed.push_back({static_cast<std::uint32_t>(m_records.size()), r.filesOffset,
                                 r.filesBytes, r.fileCount});
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

    std::uint32_t Offset() const {
        if (m_names.size() > UINT32_MAX)
            throw std::length_error("too many names for the path cache");
        return static_cast<std::uint32_t>(m_names.size());
    }

    // Files: writes the table's file names and returns how many. A table read from a cache is
    // copied as it was saved, without reading its names.
    std::size_t Files(const FileTable& files) {
        if (files.Image() != nullptr) {
            const std::string_view block = files.SavedBlock();
            if (CacheImage::ForEachSavedName(block, static_cast<std::uint32_t>(files.Count()),
                                             [](std::string_view) {})) {
                m_names.append(block);
                return files.Count();
            }
        }
        for (const ustring& name : files.Names())
            Name(text::ToNative(name));
        return files.Names().size();
    }

    // Index: the name index of every indexed folder's files (see path_cache_format.hpp).
    std::string Index() const {
        struct Occurrence {
            std::uint64_t hash;
            std::uint32_t nameOffset;
            std::uint32_t record;
        };
        std::vector<Occurrence> all;
        std::size_t total = 0;
        for (const auto& f : m_indexed)
            total += f.count;
        all.reserve(total);
        const std::string_view names = m_names;
        for (const auto& f : m_indexed) {
            std::uint32_t at = f.offset;
            CacheImage::ForEachSavedName(
                names.substr(f.offset, f.bytes), f.count, [&](std::string_view name) {
                    all.push_back({CacheImage::HashOfNative(name), at, f.record});
                    at += 1 + static_cast<std::uint32_t>(name.size());
                });
        }
        std::uint32_t bits = 0;
        // About four names a bucket: their tags lie side by side, so a lookup reads one line.
        while ((std::size_t{1} << bits) < all.size() / 4 && bits < 31)
            ++bits;
        const std::size_t buckets = std::size_t{1} << bits;

        // Gather the occurrences by bucket, keeping path order within each.
        std::vector<std::uint32_t> start(buckets + 1, 0);
        for (const auto& o : all)
            ++start[BucketOf(o.hash, bits) + 1];
        for (std::size_t b = 0; b < buckets; ++b)
            start[b + 1] += start[b];
        std::vector<Occurrence> sorted(all.size());
        {
            std::vector<std::uint32_t> next(start.begin(), start.end() - 1);
            for (const auto& o : all)
                sorted[next[BucketOf(o.hash, bits)]++] = o;
        }
        const auto nameAt = [&](std::uint32_t offset) {
            return names.substr(offset + 1, static_cast<std::uint8_t>(names[offset]));
        };

        std::vector<std::uint32_t> bucketStart(buckets + 1, 0);
        std::vector<IndexEntry> entries;
        std::string tags;
        std::vector<std::uint32_t> postings;
        for (std::size_t b = 0; b < buckets; ++b) {
            bucketStart[b] = static_cast<std::uint32_t>(entries.size());
            const auto first = sorted.begin() + start[b];
            const auto last = sorted.begin() + start[b + 1];
            // Alike names side by side, each name's folders still in path order: an insertion
            // sort, stable and quickest for the few names of a bucket.
            const auto before = [&](const Occurrence& x, const Occurrence& y) {
                return x.hash != y.hash ? x.hash < y.hash
                                        : nameAt(x.nameOffset) < nameAt(y.nameOffset);
            };
            for (auto i = first; i != last; ++i) {
                for (auto j = i; j != first && before(*j, *(j - 1)); --j)
                    std::iter_swap(j, j - 1);
            }
            for (auto it = first; it != last;) {
                auto end = it + 1;
                while (end != last && end->hash == it->hash &&
                       nameAt(end->nameOffset) == nameAt(it->nameOffset)) {
                    ++end;
                }
                IndexEntry entry{it->nameOffset, it->record};
                tags.push_back(static_cast<char>(static_cast<std::uint8_t>(it->hash)));
                if (end - it > 1) {
                    entry.posting = kPostingList | static_cast<std::uint32_t>(postings.size());
                    postings.push_back(static_cast<std::uint32_t>(end - it));
                    for (auto o = it; o != end; ++o)
                        postings.push_back(o->record);
                }
                entries.push_back(entry);
                it = end;
            }
        }
        bucketStart[buckets] = static_cast<std::uint32_t>(entries.size());
        if (postings.size() >= kPostingList)
            throw std::length_error("too many names for the path cache");

        std::string out;
        out.reserve(sizeof(IndexHeader) + bucketStart.size() * 4 +
                    entries.size() * (sizeof(IndexEntry) + 1) + postings.size() * 4);
        Put(out, IndexHeader{bits, static_cast<std::uint32_t>(entries.size()),
                             static_cast<std::uint32_t>(postings.size()), 0});
        out.append(reinterpret_cast<const char*>(bucketStart.data()), bucketStart.size() * 4);
        out.append(reinterpret_cast<const char*>(entries.data()),
                   entries.size() * sizeof(IndexEntry));
        out.append(tags);
        out.append(reinterpret_cast<const char*>(postings.data()), postings.size() * 4);
        return out;
    }

    void Name(std::string_view bytes) {
        if (bytes.size() > kMaxNameBytes)
            throw std::length_error("name too long for the path cache");
        m_names.push_back(static_cast<char>(bytes.size()));
        m_names.append(bytes);
    }

    void Text(const ustring& text, std::uint32_t& offset, std::uint16_t& length) {
        const std::string bytes = text::ToNative(text);
        if (bytes.size() > kMaxTextBytes || m_text.size() > UINT32_MAX - bytes.size())
            throw std::length_error("location too long for the path cache");
        offset = static_cast<std::uint32_t>(m_text.size());
        length = static_cast<std::uint16_t>(bytes.size());
        m_text += bytes;
    }

    std::int64_t m_writtenAtNs;
    std::int64_t m_judgedAtNs;  // when every stamp counts as listed; 0 for each its own listing
    std::vector<FolderRecord> m_records;
    std::string m_text;
    std::string m_names;
    struct IndexedFiles {
        std::uint32_t record;
        std::uint32_t offset;
        std::uint32_t bytes;
        std::uint32_t count;
    };
    std::vector<IndexedFiles> m_indexed;  // the folders whose files the name index holds
};

// EncodeInto: the cache of `mains`, handed to write(bytes) piece by piece.
template <class Write>
void EncodeInto(const FolderEntryList& mains, std::int64_t writtenAtNs, std::int64_t judgedAtNs,
                const AbsoluteIRI& root, Write write) {
    Encoder encoder(writtenAtNs, judgedAtNs);
    for (const auto& main : mains) {
        if (main)
            encoder.Main(*main);
    }
    encoder.Finish(root, write);
}

}  // namespace

PathCacheFactory::PathCacheFactory(FolderEntryList mainEntries, std::int64_t writtenAtNs)
    : m_mains(std::move(mainEntries)),
      m_writtenAtNs(writtenAtNs != 0 ? writtenAtNs : NowNs()),
      m_judgedAtNs(writtenAtNs) {}

std::string PathCacheFactory::Encode(const AbsoluteIRI& root) const {
    std::string out;
    EncodeInto(m_mains, m_writtenAtNs, m_judgedAtNs, root,
               [&](std::string_view bytes) { out.append(bytes); });
    return out;
}

void PathCacheFactory::WriteCache(foundation::storage::vfs::ofstream& stream,
                                  const AbsoluteIRI& root) const {
    // Written piece by piece: a cache of a large path is tens of megabytes, not worth copying
    // into one string first.
    EncodeInto(m_mains, m_writtenAtNs, m_judgedAtNs, root, [&](std::string_view bytes) {
        stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    });
    stream.flush();
}

void SavePathCache(const AbsoluteIRI& cacheFile, const AbsoluteIRI& root,
                   const FolderEntryList& mainEntries) {
    const std::string native = text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(cacheFile));
    const auto slash = native.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : native.substr(0, slash);
    if (slash != 0) {
        if (const int err = MakeCacheFolder(folder); err != 0) {
            throw foundation::storage::vfs::Exception(
                fmt::format("cannot create the folder of {}: {}", native, os::ErrorText(err)), err);
        }
    }
    if (std::string problem = MakeRoomForCache(native); !problem.empty())
        throw foundation::storage::vfs::Exception(problem, EEXIST);
    // A name of this process's own, so that two writers never share a temporary file, and that
    // the next writer can tell whether the one that made it is still at work.
    const std::string temporary = TemporaryCacheName(native);
    int descriptor = -1;
    if (const int err = os::System().CreatePrivateFile(temporary, descriptor); err != 0) {
        throw foundation::storage::vfs::Exception(
            fmt::format("cannot create {}: {}", temporary, os::ErrorText(err)), err);
    }
    os::System().CloseFile(descriptor);
    const AbsoluteIRI temporaryIri = foundation::storage::vfs::toAbsoluteIRI(
        u"file", fl::filesystem::path(text::FromNative(temporary)));
    try {
        // Opened again and emptied: the file keeps the owner-only mode it was made with.
        PathManagement::WriteToolboxPathCache(temporaryIri, root, PathCacheFactory(mainEntries));
    } catch (...) {
        os::System().RemoveFile(temporary);
        throw;
    }
    if (const int err = os::System().Rename(temporary, native); err != 0) {
        os::System().RemoveFile(temporary);
        throw foundation::storage::vfs::Exception(
            fmt::format("cannot save {}: {}", native, os::ErrorText(err)), err);
    }
    TidyCacheFolder(folder, native);
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
    return a.GetPathEntryType() == b.GetPathEntryType() && a.GetStamp() == b.GetStamp() &&
           a.GetAbsoluteIRI() == b.GetAbsoluteIRI() &&
           a.GetCanonicalAbsoluteIRI().getIRI() == b.GetCanonicalAbsoluteIRI().getIRI() &&
           a.GetFileTable()->SameFiles(*b.GetFileTable()) &&
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

namespace {

// The folders and files of an entry's tree: what a start lists again when the cache lacks it.
std::size_t Items(const FolderEntry& entry) {
    std::size_t items = 1 + entry.GetFileCount();
    for (const auto& sub : entry.SubEntries()) {
        if (sub)
            items += Items(*sub);
    }
    return items;
}

}  // namespace

bool CacheWorthSaving(const FolderEntryList& saved, const FolderEntryList& entries) {
    if (SameEntries(saved, entries))
        return false;
    // Only entries between the runs of the same objects at the front and the back can be unsaved
    // or gone; and a path holds at least an item per entry, so a few of them decide nothing.
    const auto runs = SharedRuns(saved, entries);
    const auto middle = [&](const FolderEntryList& list) {
        return std::span(list).subspan(runs.front, list.size() - runs.front - runs.back);
    };
    boost::unordered_flat_set<const FolderEntry*> unused;
    for (const auto& entry : middle(saved)) {
        if (entry)
            unused.insert(entry.get());
    }
    std::size_t unsaved = 0;
    // The folders listed anew: the cache holds an older listing of some of them.
    boost::unordered_flat_set<AbsoluteIRI> relisted;
    for (const auto& entry : middle(entries)) {
        if (entry && !unused.erase(entry.get())) {
            unsaved += Items(*entry);
            relisted.insert(entry->GetLocation());
        }
    }
    // The cache's entries of folders that left the path are carried for nothing.
    for (const FolderEntry* gone : unused) {
        if (!relisted.contains(gone->GetLocation()))
            unsaved += Items(*gone);
    }
    if (unsaved * kUnsavedShareWorthSaving <= entries.size())
        return false;
    std::size_t all = 0;
    for (const auto& entry : entries) {
        if (entry)
            all += Items(*entry);
    }
    return unsaved * kUnsavedShareWorthSaving > all;
}

}  // namespace Velmora::SearchPath
