#include "manifest.hpp"

#include <algorithm>
#include <limits>

#include <nlohmann/json.hpp>

namespace Velmora::PackageRegistry::packages_internal {
namespace {

using foundation::storage::vfs::AbsoluteIRI;
using nlohmann::json;

[[noreturn]] void Bad(const std::string& reason) {
    throw ManifestError(reason);
}

const json* Member(const json& object, const char* key) {
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

std::string RequiredString(const json& object, const char* key) {
    const json* value = Member(object, key);
    if (value == nullptr)
        Bad(std::string("\"") + key + "\" is missing");
    if (!value->is_string())
        Bad(std::string("\"") + key + "\" is not a text");
    return value->get<std::string>();
}

bool OptionalBool(const json& object, const char* key, bool fallback) {
    const json* value = Member(object, key);
    if (value == nullptr)
        return fallback;
    if (!value->is_boolean())
        Bad(std::string("\"") + key + "\" is not true or false");
    return value->get<bool>();
}

// The folder that `path` names inside the package folder `root`: "" and "." are the root itself;
// absolute paths and ".." would leave the package and are refused.
AbsoluteIRI FolderInside(const AbsoluteIRI& root, const std::string& path) {
    if (!path.empty() && path.front() == '/')
        Bad("the folder \"" + path + "\" is not inside the package");
    AbsoluteIRI folder = root;
    std::size_t start = 0;
    while (start <= path.size()) {
        const std::size_t slash = std::min(path.find('/', start), path.size());
        const std::string segment = path.substr(start, slash - start);
        if (segment == "..")
            Bad("the folder \"" + path + "\" is not inside the package");
        if (!segment.empty() && segment != ".")
            folder = folder.getChild(text::FromNative(segment));
        start = slash + 1;
    }
    return folder;
}

TagSet Tags(const json& folder, const std::string& path) {
    const json* tags = Member(folder, "tags");
    if (tags == nullptr)
        return {};
    if (!tags->is_array())
        Bad("the tags of the folder \"" + path + "\" are not a list");
    TagSet set;
    for (const json& tag : *tags) {
        if (!tag.is_number_unsigned() ||
            tag.get<std::uint64_t>() > std::numeric_limits<std::uint32_t>::max()) {
            Bad("a tag of the folder \"" + path + "\" is not a small whole number");
        }
        set.insert(tag.get<std::uint32_t>());
    }
    return set;
}

std::vector<PackageFolder> Folders(const json& manifest, const AbsoluteIRI& root) {
    std::vector<PackageFolder> folders;
    const json* list = Member(manifest, "folders");
    if (list == nullptr)
        return folders;
    if (!list->is_array())
        Bad("\"folders\" is not a list");
    folders.reserve(list->size());
    for (const json& folder : *list) {
        if (!folder.is_object())
            Bad("an element of \"folders\" is not an object");
        for (const auto& [key, value] : folder.items()) {
            if (key != "path" && key != "tags")
                Bad("a folder has the unknown key \"" + key + "\"");
        }
        const std::string path = RequiredString(folder, "path");
        folders.push_back(PackageFolder{FolderInside(root, path), Tags(folder, path)});
    }
    return folders;
}

bool FitsInteger(const json& value) {
    if (value.is_number_unsigned()) {
        return value.get<std::uint64_t>() <=
               static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    }
    return value.is_number_integer();
}

std::map<std::string, PropertyValue, std::less<>> Properties(const json& manifest) {
    std::map<std::string, PropertyValue, std::less<>> properties;
    const json* object = Member(manifest, "properties");
    if (object == nullptr)
        return properties;
    if (!object->is_object())
        Bad("\"properties\" is not an object");
    for (const auto& [key, value] : object->items()) {
        if (value.is_boolean()) {
            properties.emplace(key, value.get<bool>());
        } else if (FitsInteger(value)) {
            properties.emplace(key, value.get<std::int64_t>());
        } else if (value.is_number()) {
            properties.emplace(key, value.get<double>());
        } else if (value.is_string()) {
            properties.emplace(key, text::FromNative(value.get<std::string>()));
        } else {
            Bad("the property \"" + key + "\" is not true, false, a number or a text");
        }
    }
    return properties;
}

void CheckKeys(const json& manifest) {
    static const char* const kKnown[] = {"id",      "version",   "name", "usable", "manualInstall",
                                         "folders", "properties"};
    for (const auto& [key, value] : manifest.items()) {
        if (std::find(std::begin(kKnown), std::end(kKnown), key) == std::end(kKnown))
            Bad("unknown key \"" + key + "\"");
    }
}

}  // namespace

std::shared_ptr<const Package> ParseManifest(const AbsoluteIRI& root, const std::string& text) {
    json manifest;
    try {
        manifest = json::parse(text);
    } catch (const json::exception& e) {
        Bad(e.what());
    }
    if (!manifest.is_object())
        Bad("the manifest is not a JSON object");
    CheckKeys(manifest);

    const std::string idText = RequiredString(manifest, "id");
    const auto id = VorlanComponents::UniqueID::Parse(idText);
    if (!id)
        Bad("the id \"" + idText + "\" is not a UUID");
    const std::string versionText = RequiredString(manifest, "version");
    const auto version = VorlanComponents::ComponentVersion::Parse(versionText);
    if (!version)
        Bad("the version \"" + versionText + "\" is not one to three numbers joined by dots");
    ustring name = root.getName();
    if (const json* given = Member(manifest, "name")) {
        if (!given->is_string())
            Bad("\"name\" is not a text");
        name = text::FromNative(given->get<std::string>());
    }

    Package::Parts parts;
    parts.identifier = ComponentIdentifier(*id, *version, std::move(name));
    parts.usable = OptionalBool(manifest, "usable", true);
    parts.manualInstall = OptionalBool(manifest, "manualInstall", false);
    parts.folders = Folders(manifest, root);
    parts.properties = Properties(manifest);
    parts.root = root;
    return std::make_shared<const Package>(std::move(parts));
}

}  // namespace Velmora::PackageRegistry::packages_internal
