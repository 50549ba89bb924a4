// The kiv program's command line, callable from tests.
#ifndef KIV_CLI_CLI_H
#define KIV_CLI_CLI_H

#include <ostream>
#include <string>
#include <vector>

#include "image_io.h"
#include "kiv.h"
#include "ops.h"

namespace kivcli {

class Progress;

// Exit codes.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;  // an operation refused, or a file could not be read or written
constexpr int kExitUsage = 2;   // bad command line
constexpr int kExitInterrupted = 130;  // Ctrl-C: the running operation stopped, nothing written

// Whether Ctrl-C has stopped this run (a batch then starts no more files).
bool interrupted();

// args excludes the program name.
int run_cli(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

// The options of a run, wherever they stand between operations.
struct Options {
    std::string format;      // --format: of the output, and of standard input when given
    int quality = 90;        // --quality 1..100 (JPEG, lossy WebP)
    bool lossless = false;   // --lossless (WebP)
    bool autorotate = true;  // --no-autorotate
    bool quiet = false;      // -q: no progress bar
    bool verbose = false;    // -v: what was read, done and written, and what alpha became
    bool linear = false;     // --linear: resample and blur in linear light
    int threads = -1;        // --threads N (library threads; -1: as it is)
    int jobs = 0;            // batch -j N (0: as many as cores)
    std::string out_dir;     // batch --out DIR
};

// One operation of a pipeline with its parsed arguments, or a `rect` (op null).
struct Step {
    const OpSpec* op;
    OpCall call;
    tagRECT rect;
};
struct Pipeline {
    std::string input, output;
    std::vector<std::string> patterns;  // batch: the input patterns
    std::vector<Step> steps;
    Options opt;
};
// The INPUT [OPERATION ARGS...]... -o OUTPUT form of the command line (batch: PATTERN...
// --out DIR OPERATION...), options anywhere an operation may stand, parsed without touching any
// file: kExitOk, or kExitUsage with the message on err.
int parse_pipeline(const std::vector<std::string>& args, Pipeline* p, std::ostream& err, bool batch = false);
// Runs the parsed operations on pic in order, second images read as they are needed, and keeps
// pic.alpha true to what the operations did: kExitOk, or kExitFailed at the first refusal.
int run_pipeline(const Pipeline& p, Picture& pic, std::ostream& err, Progress* progress = nullptr);
// Reads input, runs the pipeline and writes output (each may be "-"): an exit code.
int run_file(const Pipeline& p, const std::string& input, const std::string& output, std::ostream& err,
             Progress* progress = nullptr);
// kiv batch: each file matching the patterns through the pipeline into opt.out_dir.
int run_batch(const Pipeline& p, std::ostream& out, std::ostream& err);
// kiv info FILE...: size, depth, colours in use, format and alpha of each.
int run_info(const std::vector<std::string>& files, std::ostream& out, std::ostream& err);

// Help texts: the usage, every operation (--list), one operation (help NAME; also rect), the
// names alone (for shell completion) and the manual page, all from the operation table.
extern const char* const kUsage;
void list_ops(std::ostream& out);
int help_op(const std::string& name, std::ostream& out, std::ostream& err);
void list_names(std::ostream& out);
void write_manpage(std::ostream& out);

// The built-in test card: colour wheel, gradients, fine lines, text, smooth areas, noise.
void make_test_card(kiv& img, int width, int height);
// Renders the test card, runs every operation on it and writes dir/index.html.
int run_demo(const std::string& dir, std::ostream& out, std::ostream& err);

}  // namespace kivcli

#endif
