// vpath which NAME...: the file each name resolves to on the path.
//
//   vpath which area                  the file in use
//   vpath which -a area               every file of that name, in path order (the shadowed marked
//                                     on a terminal)
//   vpath which -z -a area            the same, each path ended by a NUL, for xargs -0
//   vpath which --from DIR helper     as seen from a file in DIR (its private folder first)
//   vpath which --batch < names       names from standard input, one a line, each answered at once
//   vpath which --explain area        where it looked, the answer and the near misses
//   vpath which --json area           one JSON object per name

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <boost/unordered/unordered_flat_map.hpp>

#include <foundation/storage/vfs/iri_conversion.hpp>
#include <velmora/os/system.hpp>
#include <velmora/pathinterfaces/constants.hpp>
#include <velmora/pathmanagement/search_target.hpp>

#include "answer_memo.hpp"
#include "commands.hpp"
#include "context/path_cache_use.hpp"
#include "context/service_use.hpp"
#include "explain.hpp"
#include "output/lookup_output.hpp"
#include "resolver.hpp"

namespace vpath_cli {
namespace {

using namespace Velmora::PathManagement;

struct WhichOptions {
    std::vector<std::string> names;
    bool all = false;
    bool batch = false;
    bool json = false;
    bool explain = false;
    bool null = false;
    std::optional<std::string> from;
};

// Appends the bytes of `text` to `out`; most names are ASCII and need no conversion.
void AppendNative(std::u16string_view text, std::string& out) {
    if (std::all_of(text.begin(), text.end(), [](char16_t c) { return c < 0x80; })) {
        out.append(text.begin(), text.end());
    } else {
        out += Velmora::text::ToNative(text);
    }
}

// Answers one name into `out`, and says on `err` when it resolves to nothing; false then.
class Answerer {
  public:
    // `terminal`: whether standard output is a terminal.
    Answerer(const Resolver& resolver, const WhichOptions& options, bool terminal)
        : m_resolver(resolver),
          m_options(options),
          m_end(options.null ? '\0' : '\n'),
          // The note is for a person reading a terminal; a program reading a pipe, like which(1)'s
          // users, wants paths as they are.
          m_shadowedNote(!options.null && terminal) {}

    bool operator()(const std::string& arg, std::string& out, std::string& err) const {
        const auto key = AnswerMemo::KeyOf(arg);
        bool found = false;
        if (const auto known = m_memo.Find(key)) {
            out += known->text;
            found = known->found;
        } else {
            const std::size_t start = out.size();
            found = Answer(arg, out);
            m_memo.Remember(key, std::string_view(out).substr(start), found);
        }
        if (!found) {
            err += "vpath: ";
            err += arg;
            err += ": not found on the path\n";
        }
        return found;
    }

    // Prepare: reads into the processor's caches what answering these names will read first.
    // Their lookups do not depend on each other, so that the processor overlaps their waits for
    // memory, which it cannot do while answering one name at a time.
    void Prepare(std::span<const std::string> names) const {
        for (const std::string& name : names) {
            if (const auto known = m_memo.Find(AnswerMemo::KeyOf(name));
                known && !known->text.empty())
                __builtin_prefetch(&known->text.back());
        }
    }

  private:
    // Looks the name up and appends its answer to `out`; false when it resolves to nothing.
    bool Answer(const std::string& arg, std::string& out) const {
        const ustring name = Arg(arg);
        const auto target =
            CreateSearchTargetWithExtensionInFilenamePreferred(name, Constants::LanguageExtensions);
        // A file in use needs only its folder and its name to be told as text.
        if (!m_options.all && !m_options.json && m_resolver.CanTellQuickly(target)) {
            const auto holder = m_resolver.QuickInUse(target);
            if (holder) {
                const auto& entry = *holder->entry;
                AppendFolder(
                    entry, [&]() -> const auto& { return entry.GetLocation(); }, out);
                AppendNative(*target.baseName, out);
                AppendNative((*target.extensions)[holder->extension], out);
                out += m_end;
            } else if (m_options.batch) {
                out += m_end;
            }
            return holder.has_value();
        }
        // One list for every name, so that a batch allocates none per name.
        std::vector<FoundItem>& found = m_found;
        found.clear();
        if (m_options.all) {
            found = m_resolver.All(target);
        } else if (auto hit = m_resolver.InUse(target)) {
            found.push_back(std::move(*hit));
        }
        if (m_options.json) {
            out += JsonLine(Json(arg, found));
        } else {
            Text(found, out);
        }
        return !found.empty();
    }

    void Text(const std::vector<FoundItem>& found, std::string& out) const {
        for (std::size_t i = 0; i < found.size(); ++i) {
            AppendPath(found[i], out);
            if (i > 0 && m_shadowedNote)
                out += "  (shadowed)";
            out += m_end;
        }
        // In a batch every name gets its lines and then a blank line (an empty record) when a name
        // may have several answers, so that answers stay in step with questions.
        if (m_options.batch && (m_options.all || found.empty()))
            out += m_end;
    }

    // The file's native path.
    void AppendPath(const FoundItem& hit, std::string& out) const {
        const auto& item = *hit.GetPathItem();
        AppendFolder(
            *hit.GetPathEntry(), [&]() -> const auto& { return item.GetLocation(); }, out);
        AppendNative(item.GetName(), out);
        AppendNative(item.GetExtension(), out);
    }

    // The native path of the folder in which `entry` holds its files, `location()`, and a
    // separator; each entry's is converted once, as a batch meets it again and again.
    template <class Location>
    void AppendFolder(const IPathEntry& entry, Location location, std::string& out) const {
        auto [at, fresh] = m_folderBytes.try_emplace(&entry);
        if (fresh)
            at->second =
                Velmora::text::ToNative(foundation::storage::vfs::fromAbsoluteIRI(location())) +
                "/";
        out += at->second;
    }

    static nlohmann::json Json(const std::string& arg, const std::vector<FoundItem>& found) {
        nlohmann::json hits = nlohmann::json::array();
        for (std::size_t i = 0; i < found.size(); ++i) {
            auto hit = HitJson(found[i]);
            hit["inUse"] = i == 0;
            if (i > 0)
                hit["shadowedBy"] = FileJson(*found[0].GetPathItem());
            hits.push_back(std::move(hit));
        }
        return {{"name", arg}, {"found", !found.empty()}, {"hits", std::move(hits)}};
    }

    const Resolver& m_resolver;
    const WhichOptions& m_options;
    const char m_end;  // of each path: a line break, or a NUL with --null
    const bool m_shadowedNote;
    // The entries stay alive with the path, which outlives the answerer.
    mutable boost::unordered_flat_map<const IPathEntry*, std::string> m_folderBytes;
    mutable std::vector<FoundItem> m_found;
    mutable AnswerMemo m_memo;
};

// Lines are read and answered up to this many at a time when more input is ready.
constexpr std::size_t kLinesTogether = 16;

// Reads into `lines` the next line (ended by `end`) and those after it that are already read in, up
// to their number; returns how many, 0 at the end of the input.
std::size_t ReadReadyLines(std::vector<std::string>& lines, char end) {
    std::size_t count = 0;
    while (count < lines.size() && std::getline(std::cin, lines[count], end)) {
        std::string& line = lines[count++];
        if (end == '\n' && !line.empty() && line.back() == '\r')
            line.pop_back();
        if (std::cin.rdbuf()->in_avail() <= 0)
            break;
    }
    return count;
}

// Answers are written in blocks of about this size when more input is ready.
constexpr std::size_t kOutputBlock = std::size_t{1} << 16;

// Writes what has been answered and empties the buffers.
void Flush(std::string& out, std::string& err) {
    std::fwrite(err.data(), 1, err.size(), stderr);
    err.clear();
    Print(out);
    out.clear();
}

// The folder of --from, checked before the path is read: a folder that is not there is a mistake
// in the command, not a name that resolves to nothing.
std::optional<foundation::storage::vfs::AbsoluteIRI> FromFolder(const WhichOptions& options) {
    if (!options.from)
        return std::nullopt;
    auto folder = ToFolderIRI(Arg(*options.from));
    Velmora::os::FileStatus status;
    const int error = Velmora::os::System().Stat(DisplayBytes(folder), status);
    if (error != 0 || !status.IsFolder()) {
        throw CLI::ValidationError(
            "--from", fmt::format("{}: {}", *options.from,
                                  Velmora::os::ErrorText(error != 0 ? error : ENOTDIR)));
    }
    return folder;
}

// Answers names on one path, as read when it was made.
struct PathAnswers {
    PathAnswers(std::shared_ptr<const Velmora::SearchPath::MainSearchPath> snapshot,
                const std::optional<foundation::storage::vfs::AbsoluteIRI>& from,
                const WhichOptions& options, bool terminal)
        : path(std::move(snapshot)), resolver(*path, from), answer(resolver, options, terminal) {}

    // Answers each name; false when one of them resolves to nothing.
    bool operator()(std::span<const std::string> names, std::string& out, std::string& err) const {
        answer.Prepare(names);
        bool all = true;
        for (const std::string& name : names)
            all = answer(name, out, err) && all;
        return all;
    }

    std::shared_ptr<const Velmora::SearchPath::MainSearchPath> path;
    Resolver resolver;
    Answerer answer;
};

// A client's batch in the path service: each piece is answered on the path as it is then.
class ServedBatch final : public Velmora::SearchPath::ServiceBatch {
  public:
    ServedBatch(const WhichOptions& options,
                std::optional<foundation::storage::vfs::AbsoluteIRI> from,
                std::shared_ptr<Velmora::SearchPath::MainSearchPathManager> manager)
        : m_options(options),
          m_from(std::move(from)),
          m_manager(std::move(manager)),
          m_terminal(OutputIsTerminal()) {}

    Velmora::SearchPath::ServiceReply Answer(std::string_view piece) override {
        auto path = m_manager->GetSnapshot();
        if (!m_answers || m_answers->path != path)
            m_answers =
                std::make_unique<PathAnswers>(std::move(path), m_from, m_options, m_terminal);
        const char end = m_options.null ? '\0' : '\n';
        m_names.clear();
        while (!piece.empty()) {
            const auto at = piece.find(end);
            m_names.emplace_back(piece.substr(0, at));
            piece.remove_prefix(at == std::string_view::npos ? piece.size() : at + 1);
        }
        Velmora::SearchPath::ServiceReply reply;
        reply.status = (*m_answers)(m_names, reply.out, reply.err) ? kExitOk : kExitNotFound;
        return reply;
    }

  private:
    const WhichOptions m_options;
    const std::optional<foundation::storage::vfs::AbsoluteIRI> m_from;
    const std::shared_ptr<Velmora::SearchPath::MainSearchPathManager> m_manager;
    const bool m_terminal;
    std::unique_ptr<PathAnswers> m_answers;
    std::vector<std::string> m_names;
};

// The arguments that start the same batch in the path service: the options, without the names.
std::vector<std::string> BatchArguments(const WhichOptions& options) {
    std::vector<std::string> arguments = {"which", "--batch"};
    if (options.all)
        arguments.push_back("--all");
    if (options.json)
        arguments.push_back("--json");
    if (options.null)
        arguments.push_back("--null");
    if (options.from) {
        arguments.push_back("--from");
        arguments.push_back(*options.from);
    }
    return arguments;
}

// Names sent to the path service together, when that many are ready.
constexpr std::size_t kLinesPerPiece = 4096;

// A batch answered by the path service, piece by piece as names are read; none when it must be
// answered without it. Should the service fail, the names it did not answer and the rest are
// answered here, on the path read from the disk.
std::optional<int> BatchThroughService(
    const WhichOptions& options, const PathOptions& pathOptions,
    const std::optional<foundation::storage::vfs::AbsoluteIRI>& from) {
    const char end = options.null ? '\0' : '\n';
    // A name given on the command line that holds the separator cannot be sent as one.
    for (const std::string& name : options.names) {
        if (name.find(end) != std::string::npos)
            return std::nullopt;
    }
    int status = kExitOk;
    auto batch = OpenServiceBatch(pathOptions, BatchArguments(options), status);
    if (!batch)
        return std::nullopt;
    std::fflush(stdout);
    std::unique_ptr<PathAnswers> local;
    std::string piece;
    std::string out;
    std::string err;
    const auto answer = [&](std::span<const std::string> names) {
        if (!local) {
            piece.clear();
            for (const std::string& name : names) {
                piece += name;
                piece += end;
            }
            if (const auto reply = batch->Ask(piece)) {
                std::fwrite(reply->err.data(), 1, reply->err.size(), stderr);
                Print(reply->out);
                std::fflush(stdout);
                if (reply->status != kExitOk)
                    status = kExitNotFound;
                return;
            }
            // The service's warnings of the path were printed as the batch opened.
            local = std::make_unique<PathAnswers>(LoadPath(pathOptions, false), from, options,
                                                  OutputIsTerminal());
        }
        if (!(*local)(names, out, err))
            status = kExitNotFound;
        Flush(out, err);
        std::fflush(stdout);
    };
    if (!options.names.empty())
        answer(options.names);
    std::ios::sync_with_stdio(false);
    std::vector<std::string> lines(kLinesPerPiece);
    while (const std::size_t count = ReadReadyLines(lines, end))
        answer(std::span<const std::string>(lines.data(), count));
    return status;
}

int RunWhich(const WhichOptions& options, const PathOptions& pathOptions) {
    const auto from = FromFolder(options);
    if (options.batch) {
        KeepCacheInMemory();
        // The path service starts a client's batch: it is handed over, to be answered piece by
        // piece as the client sends its names.
        if (auto* slot = ServedBatchSlot()) {
            LoadPath(pathOptions);
            *slot = std::make_unique<ServedBatch>(options, from,
                                                  OpenManager(pathOptions, Purpose::Read));
            return kExitOk;
        }
        if (const auto status = BatchThroughService(options, pathOptions, from))
            return *status;
    }
    const auto path = LoadPath(pathOptions);
    const Resolver resolver(*path, from);
    int status = kExitOk;
    if (options.explain) {
        for (const std::string& arg : options.names) {
            if (!Explain(resolver, arg, options.json))
                status = kExitNotFound;
        }
        return status;
    }
    const Answerer answer(resolver, options, OutputIsTerminal());
    std::string out;
    std::string err;
    for (const std::string& arg : options.names) {
        if (!answer(arg, out, err))
            status = kExitNotFound;
    }
    Flush(out, err);
    if (!options.batch)
        return status;
    // Each answer goes out before the next line is awaited, so that another program can ask one
    // name, read its answer and ask the next; lines already read in are answered together.
    std::ios::sync_with_stdio(false);
    std::fflush(stdout);
    std::vector<std::string> lines(kLinesTogether);
    for (;;) {
        const std::size_t count = ReadReadyLines(lines, options.null ? '\0' : '\n');
        if (count == 0)
            break;
        const std::span<const std::string> ready(lines.data(), count);
        answer.Prepare(ready);
        for (const std::string& line : ready) {
            if (!answer(line, out, err))
                status = kExitNotFound;
        }
        // A batch read from a file has its next line ready until the end: its answers go out
        // in blocks, so that the buffer stays small and in the processor's caches.
        if (out.size() >= kOutputBlock || std::cin.rdbuf()->in_avail() <= 0) {
            Flush(out, err);
            std::fflush(stdout);
        }
    }
    Flush(out, err);
    return status;
}

}  // namespace

Command RegisterWhich(CLI::App& app, const PathOptions& pathOptions) {
    auto options = std::make_shared<WhichOptions>();
    auto* which = app.add_subcommand("which", "Print the file each name resolves to on the path");
    which->add_option("names", options->names, "Names to resolve (area, shapes/circle, mean.vlp)");
    which->add_flag("-a,--all", options->all,
                    "Every file of that name in path order; all but the first are shadowed");
    which
        ->add_option("--from", options->from,
                     "Resolve as seen from a file in this folder (its private folder first)")
        ->type_name("FOLDER");
    which->add_flag("--batch", options->batch,
                    "Also read names from standard input, one a line, answering each at once");
    which->add_flag("--explain", options->explain,
                    "Show the folders and files tried, the answer and the near misses");
    auto* json = which->add_flag("--json", options->json, "One JSON object per name, for scripts");
    auto* null = AddNullFlag(*which, options->null);
    null->excludes(json);
    null->excludes(which->get_option("--explain"));
    return {which, [options, &pathOptions] {
                if (options->names.empty() && !options->batch) {
                    throw CLI::RequiredError("names (or --batch)");
                }
                if (options->explain && options->batch)
                    throw CLI::ValidationError("--explain", "takes names, not --batch");
                return RunWhich(*options, pathOptions);
            }};
}

}  // namespace vpath_cli
