// The kiv program's command line, callable from tests.
#ifndef KIV_CLI_CLI_H
#define KIV_CLI_CLI_H

#include <ostream>
#include <string>
#include <vector>

#include "kiv.h"
#include "ops.h"

namespace kivcli {

// Exit codes.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;  // an operation refused, or a file could not be read or written
constexpr int kExitUsage = 2;   // bad command line
constexpr int kExitInterrupted = 130;  // Ctrl-C: the running operation stopped, nothing written

// args excludes the program name.
int run_cli(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

// One operation of a pipeline with its parsed arguments, or a `rect` (op null).
struct Step {
    const OpSpec* op;
    OpCall call;
    tagRECT rect;
};
struct Pipeline {
    std::string input, output;
    std::vector<Step> steps;
    bool linear = false;  // --linear: resample and blur in linear light
};
// The INPUT [OPERATION ARGS...]... -o OUTPUT form of the command line, parsed without touching
// any file: kExitOk, or kExitUsage with the message on err.
int parse_pipeline(const std::vector<std::string>& args, Pipeline* p, std::ostream& err);
// Runs the parsed operations on img in order: kExitOk, kExitFailed at the first refusal, or
// kExitInterrupted when Ctrl-C (SIGINT) stopped it (the image is then as the last finished
// operation left it).
int run_pipeline(Pipeline& p, kiv& img, std::ostream& err);

// The built-in test card: colour wheel, gradients, fine lines, text, smooth areas, noise.
void make_test_card(kiv& img, int width, int height);
// Renders the test card, runs every operation on it and writes dir/index.html.
int run_demo(const std::string& dir, std::ostream& out, std::ostream& err);

}  // namespace kivcli

#endif
