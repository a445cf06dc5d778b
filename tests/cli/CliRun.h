#pragma once
// Running the built kestrin program from a test as a user or a script would: through the shell,
// no terminal on stdin, with its output, its messages and its exit code captured.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

namespace kestrin::test {

struct CliResult {
    int exitCode = -1; // 128 + the signal's number when the program was killed
    std::string out, err;
};

// Every byte of the file at `path` ("" when it cannot be read).
inline std::string FileText(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

inline std::string Quote(const std::string& s) { return "'" + s + "'"; }

// `command` through the shell; its output is read up to `cap` bytes (the pipe is closed then).
inline CliResult RunShell(const std::string& command, size_t cap = SIZE_MAX) {
    static int calls = 0;
    const std::string errFile = (std::filesystem::path(KESTRIN_BINARY_DIR) /
                                 ("cli-err-" + std::to_string(::getpid()) + "-" + std::to_string(++calls)))
                                    .string();
    const std::string cmd = command + " </dev/null 2>" + Quote(errFile);
    CliResult r;
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return r;
    char buf[65536];
    size_t n;
    while (r.out.size() < cap && (n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
    const int st = pclose(p);
    r.exitCode = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + (WIFSIGNALED(st) ? WTERMSIG(st) : 0);
    r.err = FileText(errFile);
    std::filesystem::remove(errFile);
    return r;
}

// The program with `args` (quoted already); `prefix` goes before it in the command ("TZ=UTC ").
inline CliResult RunKestrin(const std::string& args, const std::string& prefix = "", size_t cap = SIZE_MAX) {
    return RunShell(prefix + Quote(std::string(KESTRIN_BINARY_DIR) + "/bin/kestrin") + " " + args, cap);
}

} // namespace kestrin::test
