// The walk up from a changed location, through the session's real event manager.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <foundation/messaging/event_mgr.hpp>
#include <foundation/storage/filefolderobserver/file_folder_changed_event.hpp>
#include <foundation/storage/vfs/exceptions.hpp>
#include <velmora/pathmanagement/cache_and_notify.hpp>
#include <velmora/text/ustring.hpp>

#include "support/temp_tree.hpp"

namespace {

using foundation::messaging::createLocalEventMgr;
using foundation::messaging::SessionEmId;
using foundation::storage::filefolderobserver::FileFolderChangedEvent;
using foundation::storage::vfs::AbsoluteIRI;
using Velmora::PathManagement::NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChanges;
using Velmora::PathManagement::
    NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChangesAndCanonicalize;

// Records the locations of the change events of the session while it lives; `throwAt` makes the
// observer throw a storage exception at that event (counting from 0).
class Recorder {
  public:
    explicit Recorder(int throwAt = -1)
        : m_throwAt(throwAt),
          m_subscription(createLocalEventMgr(SessionEmId)
                             ->subscribe<FileFolderChangedEvent>([this](const auto& event) {
                                 EXPECT_EQ(event.getFrozenInclusion(),
                                           FileFolderChangedEvent::FrozenInclusion{0});
                                 if (static_cast<int>(m_seen.size()) == m_throwAt) {
                                     m_seen.push_back("(threw)");
                                     throw foundation::storage::vfs::Exception("observer failed");
                                 }
                                 m_seen.push_back(Velmora::text::ToNative(event.getLocation()));
                             })) {}
    const std::vector<std::string>& Seen() const { return m_seen; }

  private:
    int m_throwAt;
    std::vector<std::string> m_seen;
    foundation::messaging::Subscription m_subscription;
};

TEST(UpstreamNotification, SendsOneEventPerLevelUpToTheFirstOrdinaryFolder) {
    struct Case {
        const char* changed;
        std::vector<std::string> events;
    };
    const Case cases[] = {
        {"file:///tb/@Poly/+impl/area.vl",
         {"file:///tb/@Poly/+impl/area.vl", "file:///tb/@Poly/+impl", "file:///tb/@Poly",
          "file:///tb"}},
        {"file:///tb/private", {"file:///tb/private", "file:///tb"}},
        {"file:///tb/resources", {"file:///tb/resources", "file:///tb"}},
        // A "." makes a file of a folder; a file without one is its own ordinary level.
        {"file:///tb/v1.2", {"file:///tb/v1.2", "file:///tb"}},
        {"file:///tb/+p/Makefile", {"file:///tb/+p/Makefile"}},
        {"file:///tb", {"file:///tb"}},
        // Dot segments are resolved before the walk.
        {"file:///tb/+p/../@C/./x.vl", {"file:///tb/@C/x.vl", "file:///tb/@C", "file:///tb"}},
        // Special folders up to the root: the root is the ordinary folder that ends the walk.
        {"file:///+a/+b", {"file:///+a/+b", "file:///+a", "file:///"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.changed);
        Recorder plain;
        NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChanges(
            AbsoluteIRI(Velmora::text::FromNative(c.changed)));
        EXPECT_EQ(plain.Seen(), c.events);
        // Where nothing is on disk the canonicalising variant walks the same levels.
        Recorder canonicalising;
        NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChangesAndCanonicalize(
            AbsoluteIRI(Velmora::text::FromNative(c.changed)));
        EXPECT_EQ(canonicalising.Seen(), c.events);
    }
}

TEST(UpstreamNotification, FailuresAreSwallowedOrFallBackAsTheFunctionSays) {
    // An invalid location: nothing sent, nothing thrown.
    Recorder nothingSent;
    NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChanges(AbsoluteIRI());
    EXPECT_TRUE(nothingSent.Seen().empty());
    // Other errors of the observers pass through the plain variant...
    Recorder recorder(/*throwAt=*/1);
    EXPECT_THROW(NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChanges(
                     AbsoluteIRI(u"file:///tb/+p/x.vl")),
                 foundation::storage::vfs::Exception);
    EXPECT_EQ(recorder.Seen(), (std::vector<std::string>{"file:///tb/+p/x.vl", "(threw)"}));
}

TEST(UpstreamNotification, CanonicalisingWalksFromTheRealFolder) {
    vpath_test::TempTree tree;
    tree.File("real/+p/x.vl");
    tree.Link("link", "real");
    Recorder recorder;
    NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChangesAndCanonicalize(
        tree.IRI("link/+p/x.vl"));
    const auto real = [&](const std::string& relative) {
        return Velmora::text::ToNative(tree.IRI(relative).toString());
    };
    EXPECT_EQ(recorder.Seen(),
              (std::vector<std::string>{real("real/+p/x.vl"), real("real/+p"), real("real")}));

    // A storage error in the canonical walk falls back to the plain walk from the location as
    // given; what was sent stays sent.
    Recorder failing(/*throwAt=*/1);
    NotifyUpstreamPathEntriesOfPossibleSpecialSubfolderChangesAndCanonicalize(
        tree.IRI("link/+p/x.vl"));
    EXPECT_EQ(failing.Seen(),
              (std::vector<std::string>{real("real/+p/x.vl"), "(threw)", real("link/+p/x.vl"),
                                        real("link/+p"), real("link")}));
}

}  // namespace
