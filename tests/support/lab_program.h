// The program as a shell runs it, for tests of what its users meet.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace lab {

// What a run left.
struct Ran {
    int code = -1;
    std::string out;     // standard output
    std::string errors;  // standard error
};

inline std::string ReadFile(const std::string& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// Runs the program with `arguments`, as a shell reads them, after the
// commands in `before`.
inline Ran RunLab(const std::string& arguments, const std::string& before = "") {
    const std::string errors = testing::TempDir() + std::to_string(getpid()) + ".err";
    const std::string command =
        before + TARQUEL_LAB_PROGRAM " " + arguments + " 2>'" + errors + "'";
    Ran ran;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return ran;
    std::array<char, 4096> buffer{};
    for (size_t count = 0; (count = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
        ran.out.append(buffer.data(), count);
    }
    const int status = pclose(pipe);
    ran.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    ran.errors = ReadFile(errors);
    std::filesystem::remove(errors);
    return ran;
}

// A file of the test's own, gone with it.
class File {
  public:
    File(const std::string& name, const std::string& text)
        : mPath(std::filesystem::path(testing::TempDir()) / (std::to_string(getpid()) + name)) {
        std::ofstream(mPath) << text;
    }
    ~File() { std::filesystem::remove(mPath); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    std::string Path() const { return mPath.string(); }

  private:
    const std::filesystem::path mPath;
};

}  // namespace lab
