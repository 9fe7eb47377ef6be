#pragma once
// Path strings: cutting a path-list text into folder texts.
//
//   SplitVorlanPath(u"/a/tb;/b/utils:/c")  => {u"/a/tb", u"/b/utils", u"/c"}
//   SplitVorlanPath(u";;a;;")              => {u"a"}
//   SplitVorlanPath(u" a ; b ")            => {u" a ", u" b "}

#include <vector>

#include <velmora/pathmanagement/export.hpp>
#include <velmora/text/ustring.hpp>

namespace Velmora::PathManagement {

// SplitVorlanPath: the folder texts of a path-list text, in order. Both ";" and the platform's
// separator (Constants::VorlanPathsepStr) separate; empty pieces are dropped; nothing else is
// changed: no trimming, no escapes, no conversion.
VELMORA_PATHMANAGEMENT_EXPORT std::vector<ustring> SplitVorlanPath(const ustring& text);

}  // namespace Velmora::PathManagement
