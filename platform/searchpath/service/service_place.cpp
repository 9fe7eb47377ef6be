#include <velmora/searchpath/service_place.hpp>

#include <cerrno>
#include <cstdlib>

#include <fmt/format.h>

#include <velmora/cwf/current_working_folder.hpp>
#include <velmora/os/system.hpp>
#include <velmora/searchpath/path_cache.hpp>
#include <velmora/searchpath/path_definition_file.hpp>
#include <velmora/text/ustring.hpp>

#include <foundation/storage/vfs/iri_conversion.hpp>

namespace Velmora::SearchPath {
namespace {

// The most bytes of a Unix socket's path, its terminating zero left out.
constexpr std::size_t kMostSocketPath = 107;
constexpr std::uint32_t kFolderBit = 0040000;
constexpr std::uint32_t kKindBits = 0170000;
constexpr std::uint32_t kStickyBit = 01000;

std::string Parent(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0)
        return "/";
    return path.substr(0, slash);
}

std::string StateFolder() {
    if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state == '/')
        return std::string(state) + "/vpath";
    if (const char* home = std::getenv("HOME"); home != nullptr && *home == '/')
        return std::string(home) + "/.local/state/vpath";
    return {};
}

std::string Absolute(const std::string& path) {
    return text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(
        current_working_folder::CurrentWorkingFolder().resolve(text::FromNative(path))));
}

}  // namespace

std::string ServiceFolder() {
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime != nullptr && *runtime == '/')
        return std::string(runtime) + "/vpath";
    const std::string cache = DefaultPathCacheFolder();
    return cache.empty() ? std::string() : cache + "/run";
}

std::optional<ServicePlace> PlaceOfService(const std::string& pathDefinition) {
    const std::string folder = ServiceFolder();
    if (folder.empty() || pathDefinition.empty())
        return std::nullopt;
    ServicePlace place;
    place.pathDefinition = Absolute(pathDefinition);
    // The user's service manager cannot hash a location: the socket unit listens at a fixed name,
    // which is the usual path's.
    const std::string usual = PathDefinitionFile::UsualLocation();
    if (!usual.empty() && Absolute(usual) == place.pathDefinition) {
        place.key = kUsualPathServiceKey;
    } else {
        const std::string name = PathCacheFileName(text::FromNative(place.pathDefinition));
        place.key = name.substr(0, name.find('.'));
    }
    place.folder = folder;
    place.socket = folder + "/" + place.key + ".sock";
    place.lock = folder + "/" + place.key + ".lock";
    if (const std::string state = StateFolder(); !state.empty())
        place.log = state + "/service-" + place.key + ".log";
    if (place.socket.size() > kMostSocketPath)
        return std::nullopt;
    return place;
}

std::string ServiceFolderProblem(const std::string& folder, bool make) {
    auto& system = os::System();
    const std::uint32_t user = system.UserId();
    const std::string parent = Parent(folder);
    os::FileStatus status;
    if (const int err = system.LinkStatus(parent, status); err != 0) {
        if (!make || err != ENOENT)
            return fmt::format("cannot use {}: {}", parent, os::ErrorText(err));
        if (const int made = system.MakeFolders(parent); made != 0)
            return fmt::format("cannot make {}: {}", parent, os::ErrorText(made));
        system.LinkStatus(parent, status);
    }
    // Another user who may write to the folder above could put a folder of theirs in its place.
    if ((status.mode & kKindBits) != kFolderBit || (status.owner != user && status.owner != 0) ||
        ((status.mode & 0022) != 0 && (status.mode & kStickyBit) == 0)) {
        return fmt::format("{} may be changed by other users: the path service is not used",
                           parent);
    }
    int err = system.LinkStatus(folder, status);
    if (err == ENOENT && make) {
        err = system.MakePrivateFolder(folder);
        if (err == 0 || err == EEXIST)
            err = system.LinkStatus(folder, status);
    }
    if (err != 0)
        return fmt::format("cannot use {}: {}", folder, os::ErrorText(err));
    if ((status.mode & kKindBits) != kFolderBit || status.owner != user ||
        (status.mode & 0077) != 0) {
        return fmt::format(
            "{} is not a folder of the user's alone (0700): the path service is not used; "
            "remove it to have it made again",
            folder);
    }
    return {};
}

}  // namespace Velmora::SearchPath
