#include <velmora/pathmanagement/path_strings.hpp>

#include <iterator>

#include <boost/tokenizer.hpp>

#include <velmora/pathinterfaces/constants.hpp>

namespace Velmora::PathManagement {

std::vector<ustring> SplitVorlanPath(const ustring& text) {
    ustring separators;
    separators.reserve(Constants::VorlanPathsepStr.size() + 1);
    separators += u';';
    separators += Constants::VorlanPathsepStr;

    using Separator = boost::char_separator<char16_t>;
    using Tokenizer = boost::tokenizer<Separator, ustring::const_iterator, ustring>;
    const Separator separator(separators.c_str(), u"", boost::drop_empty_tokens);
    const Tokenizer tokens(text, separator);

    std::vector<ustring> folders(
        static_cast<std::size_t>(std::distance(tokens.begin(), tokens.end())));
    std::copy(tokens.begin(), tokens.end(), folders.begin());
    return folders;
}

}  // namespace Velmora::PathManagement
