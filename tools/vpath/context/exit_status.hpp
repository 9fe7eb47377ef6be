#pragma once
// The exit statuses of vpath, the same for every subcommand. Help and the man page print
// kExitStatuses, so that what is documented is what the code returns.

#include <array>

namespace vpath_cli {

inline constexpr int kExitOk = 0;
inline constexpr int kExitNotFound = 1;  // a name resolved to nothing; two paths differ
inline constexpr int kExitRefused = 1;   // a change was refused: messages say why, nothing changed
inline constexpr int kExitTrouble = 2;   // bad usage, an unusable path, an output error
inline constexpr int kExitUsage = kExitTrouble;

struct ExitStatusMeaning {
    int status;
    const char* meaning;
};

inline constexpr std::array kExitStatuses = {
    ExitStatusMeaning{kExitOk,
                      "done: every name was found, the change was made, the paths are the "
                      "same"},
    ExitStatusMeaning{kExitNotFound,
                      "a name was not found, or the two paths differ (diff); or a "
                      "change was refused, with messages saying why, and nothing "
                      "was changed"},
    ExitStatusMeaning{kExitTrouble,
                      "bad usage, a saved path that cannot be read, or an error "
                      "writing the output"},
};

}  // namespace vpath_cli
