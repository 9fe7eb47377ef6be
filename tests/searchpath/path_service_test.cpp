// The path service and its client, in one process: the protocol's parser, who may ask, and that an
// answer reflects every change made before the question.

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <velmora/os/system.hpp>
#include <velmora/searchpath/path_service.hpp>
#include <velmora/searchpath/service_client.hpp>

#include "support/fault_system.hpp"
#include "support/scoped_env.hpp"
#include "support/temp_tree.hpp"

namespace {

using namespace Velmora::SearchPath;
using vpath_test::TempTree;

TEST(ServiceProtocol, RoundTripsAndRefusesEveryTruncation) {
    ServiceRequest request;
    request.pathDefinition = "/home/ada/.config/vpath/pathdef";
    request.folder = "/home/ada/\xff\xfe";  // names are bytes, not text
    request.arguments = {"which", "-a", std::string("ar\0ea", 5), ""};
    request.settings = {{"VPATH_AT_FOLDER_PRECEDENCE", "1"}};
    const std::string encoded = EncodeRequest(request);
    EXPECT_EQ(ParseRequest(encoded), request);
    // A frame cut anywhere is refused, never read beyond its end.
    for (std::size_t size = 0; size < encoded.size(); ++size)
        EXPECT_FALSE(ParseRequest(encoded.substr(0, size))) << size;
    {
        // Another version of the protocol.
        std::string other = encoded;
        other[4] = 2;
        EXPECT_FALSE(ParseRequest(other));
    }
    {
        // A count of arguments far beyond what the frame holds.
        std::string forged =
            encoded.substr(0, 9 + 4 + request.pathDefinition.size() + 4 + request.folder.size());
        forged += std::string("\xff\xff\xff\x7f", 4);
        EXPECT_FALSE(ParseRequest(forged));
    }
    const ServiceReply reply{3, "out\n", "err\n"};
    const std::string replied = EncodeReply(reply);
    EXPECT_EQ(ParseReply(replied), reply);
    for (std::size_t size = 0; size < replied.size(); ++size)
        EXPECT_FALSE(ParseReply(replied.substr(0, size))) << size;
}

// A batch that answers each piece with the number of files on the path.
class CountingBatch final : public ServiceBatch {
  public:
    explicit CountingBatch(MainSearchPathManager& manager) : m_manager(manager) {}
    ServiceReply Answer(std::string_view) override {
        return {0, std::to_string(m_manager.GetSnapshot()->GetFileCount()), {}};
    }

  private:
    MainSearchPathManager& m_manager;
};

// A service of a path of one folder, in a runtime folder of the test's own, served on a thread.
class ServedPath : public ::testing::Test {
  protected:
    void SetUp() override {
        m_runtime.emplace("XDG_RUNTIME_DIR", m_tree.Folder("run").string());
        // An old folder: its stamp is trusted, not read again for being too recent.
        std::filesystem::last_write_time(
            m_tree.Folder("tb"),
            std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
        m_pathdef = m_tree.File("pathdef", m_tree.Path("tb").string() + "\n").string();
        std::string problem;
        PathService::OpenError error = PathService::OpenError::None;
        m_service = PathService::Open(
            {.pathDefinition = m_pathdef,
             .answer =
                 [this](const ServiceRequest&, MainSearchPathManager& manager) {
                     ++m_answered;
                     const auto path = manager.GetSnapshot();
                     return ServiceReply{0, std::to_string(path->GetFileCount()), {}};
                 },
             .batch = [](const ServiceRequest&, MainSearchPathManager& manager,
                         ServiceReply&) { return std::make_unique<CountingBatch>(manager); },
             .log = {}},
            problem, error);
        ASSERT_TRUE(m_service) << problem;
        m_serving = std::thread([this] {
            while (!m_stop.load())
                m_service->ServeOne(std::chrono::milliseconds(20));
        });
    }
    void TearDown() override {
        m_stop.store(true);
        if (m_serving.joinable())
            m_serving.join();
        m_service.reset();
        m_runtime.reset();
    }

    std::optional<ServiceReply> Ask() const {
        ServiceRequest request;
        request.pathDefinition = m_service->Place().pathDefinition;
        request.arguments = {"which", "area"};
        request.settings = AnswerSettings();
        return AskPathService(m_service->Place(), request, {});
    }

    // The seam is in place before the service's threads start and until they end.
    vpath_test::FaultSystem m_faults;
    TempTree m_tree;
    std::string m_pathdef;
    std::optional<vpath_test::ScopedEnv> m_runtime;
    std::unique_ptr<PathService> m_service;
    std::atomic<int> m_answered{0};
    std::atomic<bool> m_stop{false};
    std::thread m_serving;
};

TEST_F(ServedPath, AnswersItsOwnUserAndNoOther) {
    const auto reply = Ask();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->out, "0");
    m_faults.PretendPeer(Velmora::os::System().UserId() + 1);
    EXPECT_FALSE(Ask());
    EXPECT_EQ(m_answered.load(), 1);
}

TEST_F(ServedPath, AnswerSeesEveryFileMadeBeforeTheQuestion) {
    // Asked within microseconds of each change: only the sync makes the answer wait for the
    // watcher to take the change in.
    for (int i = 1; i <= 50; ++i) {
        m_tree.File("tb/f" + std::to_string(i) + ".vl");
        const auto reply = Ask();
        ASSERT_TRUE(reply);
        ASSERT_EQ(reply->out, std::to_string(i));
    }
}

TEST_F(ServedPath, AfterLostEventsTheAnswerReadsThePathAgain) {
    // A change within the folder's stamp tick, its event lost in an overflow that the watcher
    // took in before the question came: only reading every folder again finds it.
    m_faults.FreezeStamp("/tb");
    Velmora::os::FileStatus before;
    ASSERT_EQ(Velmora::os::System().Stat(m_tree.Path("tb").string(), before), 0);
    m_faults.LoseEvents();
    m_tree.File("tb/lost.vl");
    m_faults.ForceOverflow();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const auto reply = Ask();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->out, "1");
}

TEST_F(ServedPath, DeclinesAnotherPathsQuestion) {
    ServiceRequest request;
    request.pathDefinition = m_pathdef + ".other";
    EXPECT_FALSE(AskPathService(m_service->Place(), request, {}));
    EXPECT_EQ(m_answered.load(), 0);
}

TEST_F(ServedPath, ABatchLeftOpenKeepsNoClientWaitingAndStopEndsIt) {
    m_stop.store(true);
    m_serving.join();
    auto served = std::async(std::launch::async, [this] { return m_service->Serve(); });
    ServiceRequest request;
    request.operation = ServiceOperation::Batch;
    request.pathDefinition = m_service->Place().pathDefinition;
    request.settings = AnswerSettings();
    ServiceReply opening;
    auto batch = PathServiceBatch::Open(m_service->Place(), request, {}, opening);
    ASSERT_TRUE(batch);
    m_tree.File("tb/made.vl");
    const auto piece = batch->Ask("made\n");
    ASSERT_TRUE(piece);
    EXPECT_EQ(piece->out, "1");
    // While the batch waits for its next names, other clients are answered.
    EXPECT_TRUE(Ask());
    request.operation = ServiceOperation::Stop;
    EXPECT_TRUE(AskPathService(m_service->Place(), request, {}));
    ASSERT_EQ(served.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_FALSE(batch->Ask("made\n"));
}

}  // namespace
