#pragma once
// File-system path texts.
//
// basic_path holds a path text and a flag that says whether the text is in native form. A default
// path holds an empty text with the flag set.
//
//   detail::make_native_form(u"a//b/", true)   => u"a/b"
//   detail::make_native_form(u"a//b/", false)  => u"a/b/"
//   detail::extract_root_path(u"/home/ada")    => u"/"
//   detail::extract_root_path(u"tb/x")         => u""
//   detail::extract_extension(u"tb/area.vl")   => u".vl"
//   detail::extract_extension(u"a.b/c")        => u""
//   detail::extract_extension(u".profile")     => u""
//   detail::extract_extension(u"notes.")       => u"."

#include <string>
#include <utility>

#include <velmora/platform/export.hpp>
#include <velmora/text/ustring.hpp>

namespace fl::filesystem {

template <class NarrowChar, class WideChar, class Traits = std::char_traits<WideChar>>
class basic_path {
  public:
    using string_type = std::basic_string<WideChar, Traits>;

    basic_path() = default;
    explicit basic_path(string_type text, bool native = true)
        : m_text(std::move(text)), m_native(native) {}

    const string_type& text() const noexcept { return m_text; }
    bool is_native() const noexcept { return m_native; }
    bool empty() const noexcept { return m_text.empty(); }

    void assign(string_type text, bool native = true) {
        m_text = std::move(text);
        m_native = native;
    }

  private:
    string_type m_text;
    bool m_native = true;
};

using path = basic_path<char, char16_t>;

namespace detail {

// make_native_form: the text with separators in native form: runs of "/" become one "/" and, when
// `stripTrailingSeparator` is set, a trailing "/" is dropped unless the text is the root.
VELMORA_PLATFORM_EXPORT ustring make_native_form(const ustring& text, bool stripTrailingSeparator);

// extract_root_path: "/" for an absolute path, empty for a relative one.
VELMORA_PLATFORM_EXPORT ustring extract_root_path(const ustring& text);

// extract_extension: the extension of the last path component, from its last "." on. A component
// that starts with its only "." (".profile"), "." and ".." have none.
VELMORA_PLATFORM_EXPORT ustring extract_extension(const ustring& text);

}  // namespace detail
}  // namespace fl::filesystem
