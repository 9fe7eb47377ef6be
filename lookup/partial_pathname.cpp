#include <velmora/pathmanagement/partial_pathname.hpp>

#include <functional>
#include <iterator>

#include <boost/tokenizer.hpp>

#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathmanagement/path_strings.hpp>

namespace Velmora::PathManagement {
namespace {

using Parts = PartialPathnameRange;

bool BeginsWithPlusOrAt(const ustring& name) {
    return !name.empty() && (name.front() == u'+' || name.front() == u'@');
}

// The comparator an entry gives for a policy; an entry without one gives an empty comparator, which
// fails only when it is called.
const NameMatcher& MatcherOf(const SharedNameMatcher& matcher) {
    static const NameMatcher kEmpty;
    return matcher ? *matcher : kEmpty;
}

// The lenient rule: the part names the folder, or the folder without its "+" or "@".
bool LenientlyNames(const NameMatcher& same, const ustring& part, const ustring& name) {
    if (same(part, name))
        return true;
    return BeginsWithPlusOrAt(name) && same(part, name.substr(1));
}

// The strict rule for one pair: special folders compare exactly, whatever the comparator says.
bool StrictlyNames(const NameMatcher& same, const ustring& part, const ustring& name) {
    if (!name.empty() && name.front() == u'+')
        return part == name;
    if (!name.empty() && name.front() == u'@') {
        if (!part.empty() && part.front() == u'@')
            return part == name;
        return std::u16string_view(part) == std::u16string_view(name).substr(1);
    }
    if (name == Constants::PrivateFolderStr)
        return part == Constants::PrivateFolderStr;
    return same(part, name);
}

// Walks the parts and the names from the right in step while `names(part, name)` holds. Returns
// false on a failing pair or when the names run out first; otherwise leaves `left` at the end of
// the names that lie left of the matched run.
template <class Rule>
bool MatchFromTheRight(const Parts& parts, const PartialPathnameParts& names, std::size_t& left,
                       Rule rule) {
    left = names.size();
    for (auto part = parts.end(); part != parts.begin();) {
        --part;
        if (left == 0)
            return false;
        --left;
        if (!rule(*part, names[left]))
            return false;
    }
    return true;
}

}  // namespace

PartialPathnameParts SplitPartialPathname(const ustring& text) {
    using Separator = boost::char_separator<char16_t>;
    using Tokens = boost::tokenizer<Separator, ustring::const_iterator, ustring>;
    // Up to the constant's first zero code unit, as a C string would be read.
    const Separator separator(Constants::PathnameSeparatorStr.c_str(), u"",
                              boost::drop_empty_tokens);
    const Tokens tokens(text, separator);
    PartialPathnameParts parts;
    parts.reserve(static_cast<std::size_t>(std::distance(tokens.begin(), tokens.end())));
    for (const ustring& token : tokens)
        parts.push_back(token);
    return parts;
}

bool DoesPartialPathnameMatchPathEntryIRI(const Parts& parts,
                                          std::shared_ptr<const IPathEntry> entry,
                                          const FilenameMatchingPolicy& policy) {
    const auto names = SplitPartialPathname(GetStringFromIRI(entry->GetAbsoluteIRI()));
    const auto matcher = entry->GetExtensionMatcher(policy);
    const NameMatcher& same = MatcherOf(matcher);
    std::size_t left = 0;
    if (!MatchFromTheRight(parts, names, left, [&](const ustring& part, const ustring& name) {
            return LenientlyNames(same, part, name);
        })) {
        return false;
    }
    // Class, private and resources folders may be passed over; a package folder may not.
    while (left > 0) {
        switch (GetPathEntryTypeFromBaseName(names[--left])) {
            case PathEntryType::Ordinary:
                return true;
            case PathEntryType::PlusFolder:
                return false;
            default:
                break;
        }
    }
    return true;
}

bool DoesPartialPathnameMatchPathEntryIRI(const IPath& path, const Parts& parts,
                                          std::shared_ptr<const IPathEntry> entry,
                                          const FilenameMatchingPolicy& policy) {
    std::shared_ptr<const IPathEntry> current = std::move(entry);
    for (auto part = parts.end(); part != parts.begin();) {
        --part;
        const auto matcher = current->GetExtensionMatcher(policy);
        const NameMatcher& same = MatcherOf(matcher);
        const auto location = current->GetAbsoluteIRI();
        if (!LenientlyNames(same, *part, location.getName()))
            return false;
        auto parent = path.GetParentEntryForEntry(*current);
        if (parent) {
            current = std::move(parent);
            continue;
        }
        // A main entry: the rest are folders of its location, the part just matched included,
        // compared plainly.
        const auto names = SplitPartialPathname(location.getPath());
        auto name = names.end();
        for (auto rest = std::next(part);;) {
            if (rest == parts.begin())
                return true;
            --rest;
            if (name == names.begin())
                return false;
            --name;
            if (!same(*name, *rest))
                return false;
        }
    }
    // The parts ran out below a main entry: every package folder above must have been named.
    for (auto above = current; above; above = path.GetParentEntryForEntry(*above)) {
        if (above->GetPathEntryType() == PathEntryType::PlusFolder)
            return false;
    }
    return true;
}

bool DoesPartialPathnameStrictlyMatchPathString(const Parts& parts, const ustring& folderPath,
                                                const NameMatcher& comparator) {
    const auto names = SplitPartialPathname(folderPath);
    std::size_t left = 0;
    if (!MatchFromTheRight(parts, names, left, [&](const ustring& part, const ustring& name) {
            return StrictlyNames(comparator, part, name);
        })) {
        return false;
    }
    // The parts must reach up to the ordinary folder that owns the special ones.
    return left == 0 || GetPathEntryTypeFromBaseName(names[left - 1]) == PathEntryType::Ordinary;
}

bool DoesPartialPathnameStrictlyMatchPathEntryIRI(const Parts& parts, const IPathEntry& entry,
                                                  const FilenameMatchingPolicy& policy) {
    const auto matcher = entry.GetExtensionMatcher(policy);
    return DoesPartialPathnameStrictlyMatchPathString(
        parts, GetStringFromIRI(entry.GetAbsoluteIRI()), MatcherOf(matcher));
}

}  // namespace Velmora::PathManagement
