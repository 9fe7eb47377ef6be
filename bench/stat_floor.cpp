// vpath_bench_stat_floor FILE: calls stat() once on each folder that FILE lists, one per line
// (blank lines and lines that begin with "#" are skipped, so a path definition file will do), and
// exits: 0 when every folder answered, 1 when one did not, 2 on a usage error.
//
// It is the floor that the command benchmarks print beside vpath: a process that starts, reads
// the list of folders and asks the kernel once about each of them, which is the least any tool
// must do to know that a path it answered from earlier is still as it was. It links nothing but
// the C library's calls and reads the file with plain stdio, so that its start is as cheap as a
// process's start gets.

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FILE (one folder per line)\n", argv[0]);
        return 2;
    }
    std::FILE* list = std::fopen(argv[1], "r");
    if (list == nullptr) {
        std::fprintf(stderr, "vpath_bench_stat_floor: cannot read %s\n", argv[1]);
        return 2;
    }
    char* line = nullptr;
    std::size_t capacity = 0;
    ssize_t length = 0;
    int missing = 0;
    while ((length = getline(&line, &capacity, list)) > 0) {
        if (line[length - 1] == '\n')
            line[--length] = '\0';
        if (length == 0 || line[0] == '#')
            continue;
        struct stat status {};
        if (stat(line, &status) != 0 || !S_ISDIR(status.st_mode))
            ++missing;
    }
    std::free(line);
    std::fclose(list);
    return missing == 0 ? 0 : 1;
}
