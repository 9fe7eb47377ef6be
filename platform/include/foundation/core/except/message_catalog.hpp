#pragma once
// The host's message catalogue: the text of every message id of the library and the host.
//
// A text names its arguments by position, {0} for the first. Text arguments are filled in as they
// stand (a folder name that is not UTF-8 keeps its bytes when the text is made native), numbers in
// decimal.
//
//   FormatMessage(VORLAN::vpath::nameNonexistentOrNotADirectory(u"tb"))
//     => u"\"tb\" does not exist or is not a folder."
//   FormatMessageLine(same)
//     => "\"tb\" does not exist or is not a folder. [VORLAN:vpath:nameNonexistentOrNotADirectory]"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <foundation/core/except/message_record.hpp>
#include <velmora/platform/export.hpp>
#include <velmora/text/ustring.hpp>

namespace resource_core {

// FindMessageText: the catalogue's text for a full message id, with its {N} places; nullopt for
// an id the catalogue does not know.
VELMORA_PLATFORM_EXPORT std::optional<std::string_view> FindMessageText(std::string_view id);

// CatalogMessageIDs: every id the catalogue knows, in no particular order.
VELMORA_PLATFORM_EXPORT std::vector<std::string_view> CatalogMessageIDs();

// FormatMessage: the message's text with its arguments filled in. For an id the catalogue does not
// know, a text that names the id and lists the arguments. A place whose argument is missing stays
// as it is.
VELMORA_PLATFORM_EXPORT ustring FormatMessage(const MessageRecord& message);

// FormatMessageLine: the message as users read it, in native bytes: its text, a blank and its id
// in brackets, without a line break.
VELMORA_PLATFORM_EXPORT std::string FormatMessageLine(const MessageRecord& message);

}  // namespace resource_core
