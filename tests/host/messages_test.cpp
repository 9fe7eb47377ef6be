// Messages: their texts in the catalogue and the lines that show them.

#include <set>

#include <gtest/gtest.h>

#include <foundation/core/except/message_catalog.hpp>
#include <foundation/core/except/message_exception.hpp>
#include <velmora/packages/package_registry.hpp>
#include <velmora/pathmanagement/path_messages.hpp>
#include <velmora/searchpath/main_search_path_manager.hpp>
#include <velmora/searchpath/path_definition_file.hpp>

namespace {

using resource_core::FormatMessage;
using resource_core::FormatMessageLine;
using resource_core::MessageRecord;

TEST(MessageCatalog, EveryMessageOfTheLibraryAndTheHostHasItsText) {
    const MessageRecord messages[] = {
        VORLAN::vpath::invalidLocation(u"F"),
        VORLAN::vpath::directoryPermissionDenied(u"F"),
        VORLAN::vpath::nameNonexistentOrNotADirectory(u"F"),
        VORLAN::vpath::directoryNameTooLong(u"F"),
        VORLAN::vpath::cannotAbsolutizePath(u"F"),
        VORLAN::rmpath::DirNotFound(u"F"),
        VELMORA::searchpath::folderMissing(u"F"),
        VELMORA::searchpath::notAFolder(u"F"),
        VELMORA::searchpath::folderUnreadable(u"F", "R"),
        VELMORA::searchpath::folderLoops(u"F"),
        VELMORA::pathdef::cannotRead(u"F", "R"),
        VELMORA::pathdef::cannotSave(u"F", "R"),
        VELMORA::pathdef::badLine(u"F", 12),
        VELMORA::pathdef::lineBreakInName(u"F"),
        VELMORA::packages::badManifest(u"F", "R"),
        VELMORA::packages::cannotReadPackages(u"F", "R"),
    };
    std::set<std::string> ids;
    for (const auto& message : messages) {
        SCOPED_TRACE(message.GetMessageID());
        ids.insert(message.GetMessageID());
        // A text of its own, every argument in it and no place left unfilled.
        const std::string text = Velmora::text::ToNative(FormatMessage(message));
        EXPECT_TRUE(resource_core::FindMessageText(message.GetMessageID()));
        EXPECT_NE(text.find("\"F\""), std::string::npos) << text;
        if (message.GetArguments().size() > 1) {
            EXPECT_NE(text.find(message.GetIdentifier() == "badLine" ? "12" : "R"),
                      std::string::npos);
        }
        EXPECT_EQ(text.find('{'), std::string::npos) << text;
    }
    // And the catalogue holds nothing else.
    const auto catalog = resource_core::CatalogMessageIDs();
    EXPECT_EQ(std::set<std::string>(catalog.begin(), catalog.end()), ids);
}

TEST(MessageCatalog, LinesShowTextThenIdAndKeepTheBytesOfNames) {
    // A name that is not UTF-8 comes out as the bytes it was.
    EXPECT_EQ(
        FormatMessageLine(VORLAN::vpath::nameNonexistentOrNotADirectory(u"d\xDCFF/caf\u00e9")),
        "\"d\xFF/caf\xC3\xA9\" does not exist or is not a folder. "
        "[VORLAN:vpath:nameNonexistentOrNotADirectory]");
}

}  // namespace
