#include <velmora/searchpath/attached_path.hpp>

#include <atomic>
#include <mutex>
#include <optional>
#include <thread>

#include <boost/container_hash/hash.hpp>
#include <boost/unordered/unordered_flat_map.hpp>

#include <velmora/os/system.hpp>
#include <velmora/searchpath/path_definition_file.hpp>
#include <velmora/searchpath/service_protocol.hpp>

#include "service/service_streams.hpp"
#include "service/wire.hpp"

namespace Velmora::SearchPath {
namespace {

using wire::ReceiveFrame;

// The most a client waits for a lookup's answer once greeted.
constexpr int kAnswerMs = 60'000;
// Beyond this many names the memo forgets what it holds and gathers afresh.
constexpr std::size_t kMostRemembered = std::size_t{1} << 18;

// A connection to the service that has greeted, with `request` sent; -1 when there is none.
int Connect(const ServicePlace& place, const ServiceRequest& request, int greetMs) {
    auto& system = os::System();
    int socket = -1;
    if (system.SocketConnect(place.socket, greetMs, socket) != 0)
        return -1;
    std::string payload;
    if (ReceiveFrame(socket, kMostRequestBytes, greetMs, payload) != 0 || !ParseHello(payload) ||
        system.SocketSend(socket, Frame(EncodeRequest(request)), greetMs) != 0) {
        system.CloseFile(socket);
        return -1;
    }
    return socket;
}

struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const noexcept {
        return boost::hash<std::string_view>{}(name);
    }
};

}  // namespace

struct AttachedPath::Impl {
    Options options;
    ServicePlace place;
    std::unique_ptr<const os::SharedPage> page;
    int subscription = -1;
    std::thread listener;
    std::atomic<bool> lost{false};
    std::atomic<bool> detaching{false};

    std::mutex memoMutex;  // guards the memo and its generation
    std::uint64_t memoGeneration = 0;
    boost::unordered_flat_map<std::string, std::shared_ptr<const ServedFile>, Hash, std::equal_to<>>
        memo;

    ~Impl() {
        detaching.store(true);
        if (subscription >= 0)
            os::System().SocketShutdown(subscription);
        if (listener.joinable())
            listener.join();
        if (subscription >= 0)
            os::System().CloseFile(subscription);
    }

    std::uint64_t PageGeneration() const noexcept {
        // The page is mapped read-only; an atomic load only reads. The service stores the word
        // with one atomic write, never in parts.
        auto* word = reinterpret_cast<std::uint64_t*>(static_cast<char*>(page->Address()) +
                                                      kGenerationOffset);
        return std::atomic_ref<std::uint64_t>(*word).load(std::memory_order_acquire);
    }

    ServiceRequest Request(ServiceOperation operation) const {
        ServiceRequest request;
        request.operation = operation;
        request.pathDefinition = place.pathDefinition;
        request.settings = AnswerSettings();
        return request;
    }

    // Asks the service to resolve `names`; none when it does not answer in time (whether it is
    // gone for good, the subscription tells).
    std::optional<LookupAnswer> Ask(std::vector<std::string> names) {
        auto request = Request(ServiceOperation::Lookup);
        const std::size_t count = names.size();
        request.arguments = std::move(names);
        std::optional<LookupAnswer> answer;
        if (const int socket = Connect(place, request, options.greetMs); socket >= 0) {
            std::string payload;
            if (ReceiveFrame(socket, kMostReplyBytes, kAnswerMs, payload) == 0)
                answer = ParseLookupAnswer(payload);
            os::System().CloseFile(socket);
        }
        if (!answer || answer->files.size() != count)
            return std::nullopt;
        return answer;
    }

    // Hears the changes, each the generation after the last, until the service goes or the
    // attached path is destroyed.
    void Listen(std::uint64_t generation) {
        std::string payload;
        while (ReceiveFrame(subscription, kMostReplyBytes, -1, payload) == 0) {
            const auto change = ParseServedChange(payload);
            if (!change || change->generation != generation + 1)
                break;
            generation = change->generation;
            if (options.changed)
                options.changed(*change);
        }
        lost.store(true);
        if (!detaching.load() && options.ended)
            options.ended();
    }
};

AttachedPath::AttachedPath(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}
AttachedPath::~AttachedPath() = default;

std::unique_ptr<AttachedPath> AttachedPath::Attach(Options options, std::string& reason) {
    auto impl = std::make_unique<Impl>();
    impl->options = std::move(options);
    const std::string pathDefinition = impl->options.pathDefinition.empty()
                                           ? PathDefinitionFile::DefaultLocation()
                                           : impl->options.pathDefinition;
    const auto place = PlaceOfService(pathDefinition);
    if (!place) {
        reason = "there is no folder for path services' sockets";
        return nullptr;
    }
    impl->place = *place;
    // A folder that someone else could have planted a socket or a page in is not used at all.
    if (reason = ServiceFolderProblem(place->folder, false); !reason.empty())
        return nullptr;
    impl->subscription =
        Connect(*place, impl->Request(ServiceOperation::Subscribe), impl->options.greetMs);
    if (impl->subscription < 0) {
        reason = "no path service of " + place->pathDefinition + " runs";
        return nullptr;
    }
    std::string payload;
    std::optional<std::uint64_t> from;
    if (ReceiveFrame(impl->subscription, kMostRequestBytes, impl->options.greetMs, payload) == 0)
        from = ParseSubscribed(payload);
    if (!from) {
        reason = "the path service of " + place->pathDefinition +
                 " declined: it runs with other settings, or is of another version";
        return nullptr;
    }
    const std::string pagePath = place->folder + "/" + place->key + ".gen";
    if (const int err = os::System().MapSharedPage(pagePath, kGenerationPageBytes, impl->page);
        err != 0) {
        reason = "cannot read " + pagePath + ": " + os::ErrorText(err);
        return nullptr;
    }
    if (std::string_view(static_cast<const char*>(impl->page->Address()), 4) != "VPgn") {
        reason = pagePath + " is no generation page";
        return nullptr;
    }
    impl->memoGeneration = impl->PageGeneration();
    impl->listener =
        std::thread([raw = impl.get(), generation = *from] { raw->Listen(generation); });
    return std::unique_ptr<AttachedPath>(new AttachedPath(std::move(impl)));
}

AttachedPath::Answer AttachedPath::Resolve(std::string_view name) {
    Impl& impl = *m_impl;
    const std::uint64_t generation = impl.PageGeneration();
    {
        std::lock_guard lock(impl.memoMutex);
        if (impl.lost.load(std::memory_order_relaxed))
            return {};
        // Generations only grow: a thread that read the page before another moved the memo on
        // is answered from the newer memo.
        if (generation > impl.memoGeneration) {
            impl.memo.clear();
            impl.memoGeneration = generation;
        }
        if (const auto known = impl.memo.find(name); known != impl.memo.end())
            return {true, known->second};
    }
    const auto answer = impl.Ask({std::string(name)});
    if (!answer)
        return {};
    std::shared_ptr<const ServedFile> file;
    if (answer->files.front())
        file = std::make_shared<const ServedFile>(std::move(*answer->files.front()));
    std::lock_guard lock(impl.memoMutex);
    // Kept only for the generation it was asked under: an answer from an older state than the
    // page shows would be stale, one from a newer state is dropped with the memo at the next call.
    if (answer->generation == impl.memoGeneration) {
        if (impl.memo.size() >= kMostRemembered)
            impl.memo.clear();
        impl.memo.emplace(std::string(name), file);
    }
    return {true, std::move(file)};
}

bool AttachedPath::Settle() {
    return !m_impl->lost.load() && m_impl->Ask({}).has_value();
}

std::uint64_t AttachedPath::Generation() const noexcept {
    return m_impl->PageGeneration();
}

bool AttachedPath::Lost() const noexcept {
    return m_impl->lost.load();
}

const ServicePlace& AttachedPath::Place() const noexcept {
    return m_impl->place;
}

}  // namespace Velmora::SearchPath
