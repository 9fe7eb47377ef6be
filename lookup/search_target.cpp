#include <velmora/pathmanagement/search_target.hpp>

#include <fl/filesystem/path.hpp>
#include <velmora/pathinterfaces/constants.hpp>

namespace Velmora::PathManagement {

PathEntryType GetPathEntryTypeFromBaseName(const ustring& baseName) noexcept {
    // The terminating zero of an empty string matches none of the cases below.
    switch (baseName.c_str()[0]) {
        case u'+':
            return PathEntryType::PlusFolder;
        case u'@':
            return PathEntryType::AtFolder;
        case u'p':
            return baseName == Constants::PrivateFolderStr ? PathEntryType::PrivateFolder
                                                           : PathEntryType::Ordinary;
        case u'r':
            return baseName == Constants::ResourcesFolderStr ? PathEntryType::ResourcesFolder
                                                             : PathEntryType::Ordinary;
        default:
            return PathEntryType::Ordinary;
    }
}

detail::SearchTarget CreateSearchTargetWithExtensionInFilenamePreferred(
    const ustring& name, const std::vector<ustring>& extensions) {
    // Without a "." the name has no extension of its own; the common case costs no copy.
    if (!extensions.empty() && name.find(u'.') == ustring::npos)
        return detail::SearchTarget(name, extensions);
    const ustring native =
        name.empty() ? name : fl::filesystem::detail::make_native_form(name, true);
    const ustring extension = fl::filesystem::detail::extract_extension(native);
    const bool endsWithDot = !name.empty() && name.back() == u'.';
    if (extension.empty() && !endsWithDot && !extensions.empty()) {
        return detail::SearchTarget(name, extensions);
    }
    // The name decides alone. A "." counts only if no "/" follows it.
    const auto last = name.find_last_of(u"./");
    if (last != ustring::npos && name[last] == u'.') {
        return detail::SearchTarget::Owning(name.substr(0, last), {name.substr(last)});
    }
    return detail::SearchTarget::Owning(name, {ustring()});
}

}  // namespace Velmora::PathManagement
