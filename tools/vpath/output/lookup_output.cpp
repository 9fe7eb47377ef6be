#include "lookup_output.hpp"

#include <cstdio>

#include <foundation/storage/vfs/folder.hpp>
#include <velmora/storage/vorlan_storage_system.hpp>

#include "context/cli_context.hpp"

namespace vpath_cli {

using Velmora::PathManagement::PathEntryType;

const char* KindName(PathEntryType kind) {
    switch (kind) {
        case PathEntryType::PlusFolder:
            return "package";
        case PathEntryType::AtFolder:
            return "class";
        case PathEntryType::PrivateFolder:
            return "private";
        case PathEntryType::ResourcesFolder:
            return "resources";
        default:
            return "folder";
    }
}

nlohmann::json FolderJson(const foundation::storage::vfs::AbsoluteIRI& folder) {
    return {{"path", DisplayBytes(folder)}, {"iri", Velmora::text::ToNative(folder.toString())}};
}

nlohmann::json FileJson(const Velmora::PathManagement::PathItem& item) {
    const auto location = item.GetLocation().getChild(item.GetFileName());
    return {{"path", NativePathOf(item)}, {"iri", Velmora::text::ToNative(location.toString())}};
}

nlohmann::json HitJson(const Velmora::PathManagement::FoundItem& hit) {
    const auto& entry = *hit.GetPathEntry();
    return {{"file", FileJson(*hit.GetPathItem())},
            {"folder", FolderJson(entry.GetAbsoluteIRI())},
            {"kind", KindName(entry.GetPathEntryType())}};
}

void PrintFoldersJson(const std::vector<foundation::storage::vfs::AbsoluteIRI>& folders) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& location : folders) {
        auto folder = FolderJson(location);
        folder["exists"] = foundation::storage::vfs::Folder(
                               location, Velmora::VorlanStorageSystem::GetStorageSystemReference())
                               .exists();
        list.push_back(std::move(folder));
    }
    Print(JsonLine(list));
}

CLI::Option* AddNullFlag(CLI::App& command, bool& null) {
    return command.add_flag("-z,--null", null,
                            "End each path with a NUL instead of a line break, for names that "
                            "hold line breaks (xargs -0)");
}

std::string JsonLine(const nlohmann::json& value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

void Print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

}  // namespace vpath_cli
