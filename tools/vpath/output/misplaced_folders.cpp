#include "misplaced_folders.hpp"

#include <exception>
#include <optional>

#include <fmt/format.h>

#include <velmora/pathmanagement/search_target.hpp>

#include "context/cli_context.hpp"

namespace vpath_cli {

void WarnOfSpecialFolders(const std::vector<std::string>& folders) {
    using Velmora::PathManagement::PathEntryType;
    for (const std::string& text : folders) {
        std::optional<foundation::storage::vfs::AbsoluteIRI> resolved;
        try {
            resolved = ToFolderIRI(Arg(text));
        } catch (const std::exception&) {
            continue;  // the change itself reports a text that names no folder
        }
        const auto& folder = *resolved;
        const char* kind = nullptr;
        switch (Velmora::PathManagement::GetPathEntryTypeFromBaseName(folder.getName())) {
            case PathEntryType::PlusFolder:
                kind = "a package (\"+\") folder";
                break;
            case PathEntryType::AtFolder:
                kind = "a class (\"@\") folder";
                break;
            case PathEntryType::PrivateFolder:
                kind = "a private folder";
                break;
            case PathEntryType::ResourcesFolder:
                kind = "a resources folder";
                break;
            case PathEntryType::Ordinary:
                continue;
        }
        Warn(
            fmt::format("{} is {}, which is searched through the folder that holds it; add {} "
                        "instead",
                        DisplayBytes(folder), kind, DisplayBytes(folder.getParent())));
    }
}

}  // namespace vpath_cli
