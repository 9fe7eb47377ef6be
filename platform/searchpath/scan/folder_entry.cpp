#include <velmora/searchpath/folder_entry.hpp>

#include <algorithm>

#include <boost/container/small_vector.hpp>

#include <fl/filesystem/path.hpp>
#include <velmora/text/ustring.hpp>

#include "file_table.hpp"
#include "path_cache/path_cache_image.hpp"

namespace Velmora::SearchPath {

using foundation::storage::vfs::AbsoluteIRI;
using PathManagement::PathItem;
using PathManagement::PathItemVector;

std::shared_ptr<const FileTable> FileTable::Make(const AbsoluteIRI& location,
                                                 std::vector<ustring> fileNames,
                                                 std::vector<SpecialChild> specials) {
    auto table = std::make_shared<FileTable>();
    table->m_location = location;
    table->m_specials = std::move(specials);
    std::sort(fileNames.begin(), fileNames.end());
    table->m_count = fileNames.size();
    table->Fill(std::move(fileNames));
    return table;
}

std::shared_ptr<const FileTable> FileTable::Saved(const AbsoluteIRI& location,
                                                  std::vector<SpecialChild> specials,
                                                  std::shared_ptr<const CacheImage> image,
                                                  std::uint32_t record, std::string_view block,
                                                  std::uint32_t fileCount) {
    auto table = std::make_shared<FileTable>();
    table->m_location = location;
    table->m_specials = std::move(specials);
    table->m_image = std::move(image);
    table->m_record = record;
    table->m_block = block;
    table->m_count = fileCount;
    return table;
}

void FileTable::LoadSaved() const {
    std::vector<ustring> names;
    names.reserve(m_count);
    if (!CacheImage::ForEachSavedName(
            m_block, static_cast<std::uint32_t>(m_count),
            [&](std::string_view name) { names.push_back(text::FromNative(name)); })) {
        // The cache's checksums make this a cache written wrongly rather than a damaged one;
        // the folder then holds nothing until it is listed again.
        names.clear();
    }
    if (!std::is_sorted(names.begin(), names.end()))
        std::sort(names.begin(), names.end());
    Fill(std::move(names));
}

void FileTable::Fill(std::vector<ustring> names) const {
    auto listing = std::make_unique<Listing>();
    listing->names = std::move(names);
    // One block holds every item; the item pointers share its ownership, so that handing out an
    // item costs no allocation and keeps only the block alive.
    auto storage = std::make_shared<std::vector<PathItem>>();
    storage->reserve(listing->names.size());
    for (const ustring& name : listing->names) {
        ustring extension = fl::filesystem::detail::extract_extension(name);
        storage->emplace_back(m_location, name.substr(0, name.size() - extension.size()),
                              std::move(extension));
    }
    auto items = std::make_shared<PathItemVector>();
    items->reserve(storage->size());
    std::shared_ptr<const std::vector<PathItem>> block = std::move(storage);
    for (const PathItem& item : *block)
        items->emplace_back(block, &item);
    listing->items = std::move(items);

    listing->index.reserve(listing->names.size());
    for (std::uint32_t i = 0; i < listing->names.size(); ++i)
        listing->index.emplace(std::u16string_view(listing->names[i]), i);
    m_listing = std::move(listing);
}

bool FileTable::SameFiles(const FileTable& other) const {
    if (this == &other)
        return true;
    if (m_image && other.m_image)
        return m_count == other.m_count && m_block == other.m_block;
    return std::ranges::equal(Names(), other.Names());
}

namespace {

bool IsSpecialPrefix(const ustring& name) {
    return !name.empty() && (name.front() == u'+' || name.front() == u'@');
}

// A part names a folder if it equals the folder's name, or the name without its "+" or "@".
bool PartNamesFolder(std::u16string_view part, const ustring& name, FilenameMatchingPolicy policy) {
    if (PathManagement::NamesMatch(part, name, policy))
        return true;
    return IsSpecialPrefix(name) &&
           PathManagement::NamesMatch(part, std::u16string_view(name).substr(1), policy);
}

std::vector<ustring> FolderNamesOf(const AbsoluteIRI& location) {
    std::vector<ustring> names;
    const ustring path = location.getPath();
    for (const auto part : SplitPartialName(path))
        names.emplace_back(part);
    return names;
}

}  // namespace

std::vector<std::u16string_view> SplitPartialName(std::u16string_view name) {
    std::vector<std::u16string_view> parts;
    std::size_t start = 0;
    while (start <= name.size()) {
        const std::size_t end = std::min(name.find(u'/', start), name.size());
        if (end > start)
            parts.push_back(name.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

FolderEntry::FolderEntry(Parts parts)
    : m_location(std::move(parts.location)),
      m_canonical(std::move(parts.canonical)),
      m_kind(parts.kind),
      m_stamp(parts.stamp),
      m_files(std::move(parts.files)),
      m_subEntries(std::move(parts.subEntries)) {
    // Most folders have no sub-entries: they share one empty list.
    static const auto kNone = std::make_shared<const PathManagement::PathEntryVector>();
    if (m_subEntries.empty()) {
        m_subEntryList = kNone;
        return;
    }
    auto list = std::make_shared<PathManagement::PathEntryVector>();
    list->reserve(m_subEntries.size());
    for (const auto& sub : m_subEntries) {
        list->push_back(sub);
        if (sub->GetPathEntryType() == PathEntryType::PrivateFolder)
            m_private = sub;
        if (sub->GetPathEntryType() == PathEntryType::ResourcesFolder)
            m_resources = sub;
    }
    m_subEntryList = std::move(list);
}

FolderEntry::~FolderEntry() = default;

std::shared_ptr<const PathItemVector> FolderEntry::GetItems() const {
    return m_files->Items();
}

std::size_t FolderEntry::GetFileCount() const noexcept {
    return m_files->Count();
}

std::span<const ustring> FolderEntry::GetFileNames() const {
    return m_files->Names();
}

std::shared_ptr<const PathItem> FolderEntry::FindFileNamed(std::u16string_view baseName,
                                                           std::span<const ustring> extensions,
                                                           FilenameMatchingPolicy policy) const {
    const auto& items = *m_files->Items();
    for (const ustring& extension : extensions) {
        const std::ptrdiff_t exact = m_files->Find(baseName, extension);
        if (exact >= 0)
            return items[static_cast<std::size_t>(exact)];
        if (policy != FilenameMatchingPolicy::IgnoreCase)
            continue;
        const auto names = m_files->Names();
        for (std::size_t i = 0; i < names.size(); ++i) {
            const std::u16string_view name = names[i];
            if (name.size() == baseName.size() + extension.size() &&
                Velmora::text::EqualsIgnoringCase(name.substr(0, baseName.size()), baseName) &&
                Velmora::text::EqualsIgnoringCase(name.substr(baseName.size()), extension)) {
                return items[i];
            }
        }
    }
    return nullptr;
}

const std::vector<ustring>& FolderEntry::GetFolderNames() const {
    std::call_once(m_namesOnce, [this] { m_names = FolderNamesOf(m_location); });
    return m_names;
}

bool FolderEntry::EndsWithFolders(std::span<const std::u16string_view> parts,
                                  FilenameMatchingPolicy policy) const {
    const auto& names = GetFolderNames();
    if (parts.size() > names.size())
        return false;
    const std::size_t first = names.size() - parts.size();
    for (std::size_t k = 0; k < parts.size(); ++k) {
        if (!PartNamesFolder(parts[k], names[first + k], policy))
            return false;
    }
    // Every package folder between the match and its owner must be named.
    for (std::size_t k = first; k-- > 0;) {
        const auto kind = PathManagement::GetPathEntryTypeFromBaseName(names[k]);
        if (kind == PathEntryType::Ordinary)
            return true;
        if (kind == PathEntryType::PlusFolder)
            return false;
    }
    return true;
}

std::shared_ptr<const PathItem> FolderEntry::FindFile(
    const PathManagement::detail::SearchTarget& target, FilenameMatchingPolicy policy) const {
    const std::u16string_view name = *target.baseName;
    const std::size_t slash = name.find_last_of(u'/');
    if (slash == std::u16string_view::npos) {
        return FindFileNamed(name, *target.extensions, policy);
    }
    const auto folders = SplitPartialName(name.substr(0, slash));
    if (!EndsWithFolders(folders, policy))
        return nullptr;
    return FindFileNamed(name.substr(slash + 1), *target.extensions, policy);
}

bool FolderEntry::Walk(PathManagement::SearchScope scope,
                       const PathManagement::EntryCallback& callback, bool isRoot) const {
    const bool inScope = scope.Contains(static_cast<std::uint32_t>(m_kind));
    if (inScope && callback(shared_from_this()))
        return true;
    // The walk goes down through the entries it visits; the entry it starts from is always
    // entered, so that a scope of sub-entry kinds alone still reaches them.
    if (!inScope && !isRoot)
        return false;
    for (const auto& sub : m_subEntries) {
        if (sub->Walk(scope, callback, false))
            return true;
    }
    return false;
}

bool FolderEntry::ForEachEntry(PathManagement::SearchScope scope,
                               const PathManagement::EntryCallback& callback) const {
    return Walk(scope, callback, true);
}

PathManagement::SharedNameMatcher FolderEntry::GetExtensionMatcher(
    FilenameMatchingPolicy policy) const {
    return PathManagement::GetNameMatcher(policy);
}

}  // namespace Velmora::SearchPath
