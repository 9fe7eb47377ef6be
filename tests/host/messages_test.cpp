// Messages: their texts in the catalogue.

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
using resource_core::MessageRecord;

TEST(MessageCatalog, EveryMessageOfTheLibraryAndTheHostHasItsText) {
    // A name that is not UTF-8 comes out as the bytes it was.
    const ustring f = u"F\xDCFF";
    const MessageRecord messages[] = {
        VORLAN::vpath::invalidLocation(f),
        VORLAN::vpath::directoryPermissionDenied(f),
        VORLAN::vpath::nameNonexistentOrNotADirectory(f),
        VORLAN::vpath::directoryNameTooLong(f),
        VORLAN::vpath::cannotAbsolutizePath(f),
        VORLAN::rmpath::DirNotFound(f),
        VELMORA::searchpath::folderMissing(f),
        VELMORA::searchpath::notAFolder(f),
        VELMORA::searchpath::folderUnreadable(f, "R"),
        VELMORA::searchpath::folderLoops(f),
        VELMORA::pathdef::cannotRead(f, "R"),
        VELMORA::pathdef::cannotSave(f, "R"),
        VELMORA::pathdef::badLine(f, 12),
        VELMORA::pathdef::lineBreakInName(f),
        VELMORA::packages::badManifest(f, "R"),
        VELMORA::packages::cannotReadPackages(f, "R"),
    };
    std::set<std::string> ids;
    for (const auto& message : messages) {
        SCOPED_TRACE(message.GetMessageID());
        ids.insert(message.GetMessageID());
        // A text of its own, every argument in it and no place left unfilled.
        const std::string text = Velmora::text::ToNative(FormatMessage(message));
        EXPECT_TRUE(resource_core::FindMessageText(message.GetMessageID()));
        EXPECT_NE(text.find("\"F\xFF\""), std::string::npos) << text;
        EXPECT_EQ(resource_core::FormatMessageLine(message),
                  text + " [" + message.GetMessageID() + "]");
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

}  // namespace
