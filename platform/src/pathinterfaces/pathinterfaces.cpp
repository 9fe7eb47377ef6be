#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathinterfaces/ipath.hpp>
#include <velmora/pathinterfaces/ipath_entry.hpp>
#include <velmora/pathinterfaces/ipath_entry_factory.hpp>
#include <velmora/pathinterfaces/path_item.hpp>

namespace Velmora::PathManagement {

namespace Constants {

const ustring VorlanPathsepStr = u":";
const ustring PathnameSeparatorStr = u"/";
const ustring PrivateFolderStr = u"private";
const ustring ResourcesFolderStr = u"resources";
const std::vector<ustring> LanguageExtensions = {u".vlx", u".vlp", u".vl"};

}  // namespace Constants

PathItem::PathItem(foundation::storage::vfs::AbsoluteIRI location, ustring name, ustring extension)
    : m_location(std::move(location)), m_name(std::move(name)), m_extension(std::move(extension)) {}

foundation::storage::vfs::AbsoluteIRI PathItem::GetAbsoluteIRI() const {
    return m_location.getChild(GetFileName());
}

IPathEntry::~IPathEntry() = default;
IPath::~IPath() = default;
IPathEntryFactory::~IPathEntryFactory() = default;

bool NamesMatch(std::u16string_view a, std::u16string_view b,
                FilenameMatchingPolicy policy) noexcept {
    if (policy == FilenameMatchingPolicy::IgnoreCase) {
        return Velmora::text::EqualsIgnoringCase(a, b);
    }
    return a == b;
}

SharedNameMatcher GetNameMatcher(FilenameMatchingPolicy policy) {
    static const auto exact = std::make_shared<const NameMatcher>(
        [](const ustring& a, const ustring& b) { return a == b; });
    static const auto ignoreCase = std::make_shared<const NameMatcher>(
        [](const ustring& a, const ustring& b) { return Velmora::text::EqualsIgnoringCase(a, b); });
    return policy == FilenameMatchingPolicy::IgnoreCase ? ignoreCase : exact;
}

}  // namespace Velmora::PathManagement
