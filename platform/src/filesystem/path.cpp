#include <fl/filesystem/path.hpp>

namespace fl::filesystem::detail {

ustring make_native_form(const ustring& text, bool stripTrailingSeparator) {
    ustring out;
    out.reserve(text.size());
    for (const char16_t c : text) {
        if (c == u'/' && !out.empty() && out.back() == u'/')
            continue;
        out.push_back(c);
    }
    if (stripTrailingSeparator && out.size() > 1 && out.back() == u'/')
        out.pop_back();
    return out;
}

ustring extract_root_path(const ustring& text) {
    return (!text.empty() && text.front() == u'/') ? ustring(u"/") : ustring();
}

ustring extract_extension(const ustring& text) {
    const auto slash = text.find_last_of(u'/');
    const std::size_t start = slash == ustring::npos ? 0 : slash + 1;
    const std::u16string_view leaf = std::u16string_view(text).substr(start);
    if (leaf == u"." || leaf == u"..")
        return {};
    const auto dot = leaf.find_last_of(u'.');
    if (dot == std::u16string_view::npos || dot == 0)
        return {};
    return ustring(leaf.substr(dot));
}

}  // namespace fl::filesystem::detail
