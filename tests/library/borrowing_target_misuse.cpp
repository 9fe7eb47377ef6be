// Built once per MISUSE value, outside the normal build: 0 must compile, every other value must be
// refused because a borrowing search target would be handed a temporary that dies before it.

#include <vector>

#include <velmora/pathmanagement/search_target.hpp>

using Velmora::PathManagement::CreateSearchTargetWithExtensionInFilenamePreferred;
using Velmora::PathManagement::detail::SearchTarget;

std::size_t Use();
std::size_t Use() {
    const ustring name = u"area";
    const std::vector<ustring> extensions = {u".vl"};
#if MISUSE == 0
    const auto made = CreateSearchTargetWithExtensionInFilenamePreferred(name, extensions);
    const SearchTarget built(name, extensions);
    return made.baseName->size() + built.extensions->size();
#elif MISUSE == 1
    return CreateSearchTargetWithExtensionInFilenamePreferred(u"area", extensions).baseName->size();
#elif MISUSE == 2
    return CreateSearchTargetWithExtensionInFilenamePreferred(name, {u".vl"}).baseName->size();
#elif MISUSE == 3
    return CreateSearchTargetWithExtensionInFilenamePreferred(ustring(name),
                                                              std::vector(extensions))
        .baseName->size();
#elif MISUSE == 4
    return SearchTarget(name + u"s", extensions).baseName->size();
#elif MISUSE == 5
    return SearchTarget(name, std::vector<ustring>{u".vl"}).baseName->size();
#elif MISUSE == 6
    return SearchTarget(u"area", {u".vl"}).baseName->size();
#endif
}
