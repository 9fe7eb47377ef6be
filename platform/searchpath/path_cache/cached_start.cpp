#include <velmora/searchpath/cached_start.hpp>

#include <mutex>
#include <set>

#include <fmt/format.h>

#include <foundation/log/diagnostic_logger.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/cwf/current_working_folder.hpp>
#include <velmora/pathmanagement/cache_and_notify.hpp>
#include <velmora/searchpath/path_cache_place.hpp>
#include <velmora/text/ustring.hpp>

namespace Velmora::SearchPath {
namespace {

using foundation::storage::vfs::AbsoluteIRI;

std::optional<PathCacheSlot> SlotFor(const ustring& key, std::optional<AbsoluteIRI> root) {
    const std::string folder = DefaultPathCacheFolder();
    if (folder.empty())
        return std::nullopt;
    const AbsoluteIRI file = current_working_folder::CurrentWorkingFolder().resolve(
        text::FromNative(folder + "/" + PathCacheFileName(key)));
    return PathCacheSlot{file, root.value_or(file)};
}

std::string Native(const AbsoluteIRI& file) {
    return text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(file));
}

void Tell(const CacheWarning& warn, const std::string& message) {
    static const foundation::log::DiagnosticLogger log("platform::searchpath::cached_start");
    log.Write(foundation::log::Level::Warn, message);
    if (warn)
        warn(message);
}

// Whether the cache folder of `slot` may be used. What is wrong with it is told once a process:
// the command runs from the disk meanwhile, and the message says how to set it right.
bool PlaceUsable(const PathCacheSlot& slot, const CacheWarning& warn) {
    const std::string native = Native(slot.file);
    const auto slash = native.rfind('/');
    const std::string folder =
        slash == std::string::npos ? "." : (slash == 0 ? "/" : native.substr(0, slash));
    const std::string problem = PathCacheFolderProblem(folder);
    if (problem.empty())
        return true;
    static std::mutex mutex;
    static std::set<std::string> told;
    std::lock_guard lock(mutex);
    // A caller without a sink hears nothing: the next one with a sink is told.
    if (warn && told.insert(problem).second)
        Tell(warn, problem);
    return false;
}

}  // namespace

std::optional<PathCacheSlot> PathCacheForPathDefinition(const std::string& nativePath) {
    const AbsoluteIRI location =
        current_working_folder::CurrentWorkingFolder().resolve(text::FromNative(nativePath));
    return SlotFor(location.toString(), location);
}

std::optional<PathCacheSlot> PathCacheForFolders(const std::vector<AbsoluteIRI>& folders) {
    ustring key = u"--path";
    for (const auto& folder : folders) {
        key += u'\n';
        key += folder.toString();
    }
    return SlotFor(key, std::nullopt);
}

FolderEntryList LoadCachedEntries(const PathCacheSlot& slot,
                                  const std::vector<AbsoluteIRI>& folders,
                                  const CacheWarning& warn) {
    if (!PlaceUsable(slot, warn))
        return {};
    return LoadPathCache(slot.file, slot.root, folders, slot.inMemory);
}

bool SavePathCacheIfWorthIt(const PathCacheSlot& slot, const FolderEntryList& saved,
                            const FolderEntryList& entries, const CacheWarning& warn) {
    if (!CacheWorthSaving(saved, entries) || !PlaceUsable(slot, warn))
        return false;
    try {
        SavePathCache(slot.file, slot.root, entries);
        return true;
    } catch (const PathManagement::UnableToSaveToolboxCacheException&) {
        Tell(warn, fmt::format("cannot save the path cache {}", Native(slot.file)));
    } catch (const foundation::storage::vfs::Exception& e) {
        Tell(warn, fmt::format("cannot save the path cache: {}", e.what()));
    }
    return false;
}

std::shared_ptr<const MainSearchPath> ScanWithPathCache(const std::vector<AbsoluteIRI>& folders,
                                                        const std::optional<PathCacheSlot>& slot,
                                                        ScanReport& report,
                                                        const CacheWarning& warn) {
    const auto loaded = slot ? LoadCachedEntries(*slot, folders, warn) : FolderEntryList{};
    EntryCache known;
    known.Retain(loaded);
    auto path = MainSearchPath::Revalidate(folders, loaded, report, &known);
    if (slot)
        SavePathCacheIfWorthIt(*slot, loaded, path->GetFolderEntries(), warn);
    return path;
}

}  // namespace Velmora::SearchPath
