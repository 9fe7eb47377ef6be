// A program attached to the path service: the frames it is sent, answers remembered only while
// the path stays as it was, each change heard once and in order, and a clean failure when no
// service runs.

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <velmora/os/system.hpp>
#include <velmora/searchpath/attached_path.hpp>
#include <velmora/searchpath/path_service.hpp>
#include <velmora/searchpath/service_client.hpp>

#include "support/scoped_env.hpp"
#include "support/temp_tree.hpp"

namespace {

using namespace Velmora::SearchPath;
using foundation::storage::vfs::AbsoluteIRI;
using vpath_test::TempTree;

TEST(StreamProtocol, RoundTripsAndRefusesEveryTruncation) {
    ServedChange change;
    change.kind = Velmora::PathManagement::PathChangeKind::Removed;
    change.generation = (std::uint64_t{7} << 32) + 3;  // both halves of the number count
    change.added = {AbsoluteIRI(u"file:///a/caf%C3%A9")};
    change.removed = {AbsoluteIRI(u"file:///b"), AbsoluteIRI(u"file:///c")};
    change.refreshed = {AbsoluteIRI(u"file:///d")};
    LookupAnswer answer{42, {ServedFile{"/a/area.vl", "file:///a/area.vl"}, std::nullopt}};
    const std::string encoded[] = {EncodeServedChange(change), EncodeSubscribed(change.generation),
                                   EncodeLookupAnswer(answer)};
    EXPECT_EQ(ParseServedChange(encoded[0]), change);
    EXPECT_EQ(ParseSubscribed(encoded[1]), change.generation);
    EXPECT_EQ(ParseLookupAnswer(encoded[2]), answer);
    for (const auto& bytes : encoded) {
        for (std::size_t size = 0; size < bytes.size(); ++size) {
            const auto cut = std::string_view(bytes).substr(0, size);
            EXPECT_FALSE(ParseServedChange(cut) || ParseSubscribed(cut) || ParseLookupAnswer(cut))
                << size;
        }
    }
    // A folder that is no absolute IRI, and a count of answers beyond what the frame holds.
    ServedChange relative = change;
    std::string forged = EncodeServedChange(relative);
    forged.replace(forged.find("file:///d"), 9, "tb/dd/ddd");
    EXPECT_FALSE(ParseServedChange(forged));
    std::string many = EncodeLookupAnswer({1, {}});
    many.replace(many.size() - 4, 4, std::string("\xff\xff\xff\x7f", 4));
    EXPECT_FALSE(ParseLookupAnswer(many));
}

// XDG_RUNTIME_DIR set for the test's lifetime.
class RuntimeFolder : vpath_test::ScopedEnv {
  public:
    explicit RuntimeFolder(const std::string& folder) : ScopedEnv("XDG_RUNTIME_DIR", folder) {}
};

TEST(AttachedPath, FailsCleanlyWhenNoServiceRuns) {
    TempTree tree;
    const RuntimeFolder runtime(tree.Folder("run").string());
    const std::string pathdef = tree.File("pathdef", tree.Folder("tb").string() + "\n").string();
    const auto place = PlaceOfService(pathdef);
    ASSERT_TRUE(place);
    ASSERT_EQ(ServiceFolderProblem(place->folder, true), "");
    const auto attach = [&](const std::string& why) {
        SCOPED_TRACE(why);
        std::string reason;
        EXPECT_FALSE(AttachedPath::Attach({.pathDefinition = pathdef}, reason));
        EXPECT_NE(reason, "");
    };
    attach("nothing there");
    {
        // A dead service's socket and page, left behind.
        int socket = -1;
        ASSERT_EQ(Velmora::os::System().SocketListen(place->socket, socket), 0);
        Velmora::os::System().CloseFile(socket);
        tree.File("run/vpath/" + place->key + ".gen", std::string(64, 'x'));
        attach("a dead service's files");
    }
}

// A service of a path of one folder holding area.vl, served on a thread of the test's own, and a
// program attached to it.
class Attached : public ::testing::Test {
  protected:
    void SetUp() override {
        // An old folder: its stamp is trusted, not read again for being too recent.
        m_tree.File("tb/area.vl");
        std::filesystem::last_write_time(
            m_tree.Folder("tb"),
            std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
        m_pathdef = m_tree.File("pathdef", m_tree.Path("tb").string() + "\n").string();
        std::string problem;
        PathService::OpenError error = PathService::OpenError::None;
        m_service = PathService::Open({.pathDefinition = m_pathdef, .answer = {}, .log = {}},
                                      problem, error);
        ASSERT_TRUE(m_service) << problem;
        m_serving = std::thread([this] { m_service->Serve(); });
        std::string reason;
        m_attached = AttachedPath::Attach({.pathDefinition = m_pathdef,
                                           .changed =
                                               [this](const ServedChange& change) {
                                                   std::lock_guard lock(m_mutex);
                                                   m_changes.push_back(change);
                                                   m_heard.notify_all();
                                               },
                                           .ended =
                                               [this] {
                                                   std::lock_guard lock(m_mutex);
                                                   m_ended = true;
                                                   m_heard.notify_all();
                                               }},
                                          reason);
        ASSERT_TRUE(m_attached) << reason;
    }
    void TearDown() override {
        m_attached.reset();
        StopService();
    }
    void StopService() {
        if (!m_service)
            return;
        // As `vpath service stop` does: the service ends its subscriptions too.
        ServiceRequest stop;
        stop.operation = ServiceOperation::Stop;
        stop.pathDefinition = m_service->Place().pathDefinition;
        EXPECT_TRUE(AskPathService(m_service->Place(), stop, {}));
        if (m_serving.joinable())
            m_serving.join();
        m_service.reset();
    }

    // Waits until `count` changes that changed folders have been heard, or the service ended.
    bool HeardChanges(std::size_t count) {
        std::unique_lock lock(m_mutex);
        return m_heard.wait_for(lock, std::chrono::seconds(10), [&] {
            return m_ended || std::count_if(m_changes.begin(), m_changes.end(), [](const auto& c) {
                                  return !c.empty();
                              }) >= static_cast<std::ptrdiff_t>(count);
        }) && !m_ended;
    }

    std::string Resolved(const std::string& name) {
        const auto answer = m_attached->Resolve(name);
        EXPECT_TRUE(answer.answered);
        return answer.file ? answer.file->path : "(none)";
    }

    TempTree m_tree;
    const RuntimeFolder m_runtime{m_tree.Folder("run").string()};
    std::string m_pathdef;
    std::unique_ptr<PathService> m_service;
    std::thread m_serving;
    std::unique_ptr<AttachedPath> m_attached;
    std::mutex m_mutex;
    std::condition_variable m_heard;
    std::vector<ServedChange> m_changes;
    bool m_ended = false;
};

TEST_F(Attached, ARememberedAnswerGoesWithTheChangeThatMovesIt) {
    const std::string tb = m_tree.Path("tb").string();
    EXPECT_EQ(Resolved("area"), tb + "/area.vl");
    EXPECT_EQ(Resolved("area"), tb + "/area.vl");  // remembered
    EXPECT_EQ(Resolved("clamp"), "(none)");
    {
        // Once the change is heard, the answer remembered before it is not given again.
        m_tree.File("tb/area.vlx");
        ASSERT_TRUE(HeardChanges(1));
        EXPECT_EQ(Resolved("area"), tb + "/area.vlx");
    }
    {
        // Nor once the service was made to take a change in.
        m_tree.File("tb/clamp.vl");
        ASSERT_TRUE(m_attached->Settle());
        EXPECT_EQ(Resolved("clamp"), tb + "/clamp.vl");
    }
    const auto file = m_attached->Resolve("area").file;
    ASSERT_TRUE(file);
    EXPECT_EQ(file->iri, "file://" + tb + "/area.vlx");
}

TEST_F(Attached, HearsEachChangeOnceAndInOrder) {
    const std::uint64_t from = m_attached->Generation();
    constexpr std::size_t kChanges = 20;
    for (std::size_t i = 0; i < kChanges; ++i) {
        m_tree.File("tb/f" + std::to_string(i) + ".vl");
        ASSERT_TRUE(m_attached->Settle());
    }
    ASSERT_TRUE(HeardChanges(kChanges));
    std::lock_guard lock(m_mutex);
    const AbsoluteIRI tb(u"file://" + Velmora::text::FromNative(m_tree.Path("tb").string()));
    std::uint64_t generation = from;
    std::size_t told = 0;
    for (const auto& change : m_changes) {
        EXPECT_EQ(change.generation, ++generation);
        if (!change.empty()) {
            ++told;
            EXPECT_EQ(change.refreshed, std::vector{tb});
        }
    }
    EXPECT_EQ(told, kChanges);
    EXPECT_EQ(generation, m_attached->Generation());
}

TEST_F(Attached, TellsWhenTheServiceEndsAndAnswersNoMore) {
    EXPECT_EQ(Resolved("area"), m_tree.Path("tb").string() + "/area.vl");
    StopService();
    {
        std::unique_lock lock(m_mutex);
        EXPECT_TRUE(m_heard.wait_for(lock, std::chrono::seconds(10), [&] { return m_ended; }));
    }
    EXPECT_TRUE(m_attached->Lost());
    // Not even what it remembered: the path may have changed since.
    EXPECT_FALSE(m_attached->Resolve("area").answered);
    EXPECT_FALSE(m_attached->Settle());
}

}  // namespace
