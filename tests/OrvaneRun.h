#ifndef ORVANE_TESTS_ORVANERUN_H
#define ORVANE_TESTS_ORVANERUN_H

// The built `orvane` program run as a user runs it (ORVANE_COMMAND is its path).

#include "TestImages.h"

#include <cstdlib>
#include <string>
#include <sys/wait.h>

namespace orvane {
namespace test {

struct Outcome {
    int code = -1;
    std::string out, err;  // stdout, stderr
};

// Runs the program with `arguments` (shell words) in the current directory.
inline Outcome Orvane(const std::string& arguments) {
    const std::string command = std::string(ORVANE_COMMAND) + " " + arguments + " >out.txt 2>err.txt";
    const int status = std::system(command.c_str());
    Outcome run;
    run.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.out = ReadFile("out.txt");
    run.err = ReadFile("err.txt");
    return run;
}

// A small model that runs in a second: 396 x 396.
constexpr const char* kSmall = "Willow.*.m12";

}  // namespace test
}  // namespace orvane

#endif
