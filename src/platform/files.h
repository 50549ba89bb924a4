// Whole files: read at once, and replaced atomically through a temporary beside them.
#ifndef KIV_PLATFORM_FILES_H
#define KIV_PLATFORM_FILES_H

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace kivplat {

// The whole file at path into *out (its contents replaced); false when the file cannot be
// opened or read, or holds more than max_bytes. reason (may be null) receives the system's
// words for a failure ("No such file or directory").
bool read_file(const char* path, std::size_t max_bytes, std::vector<unsigned char>* out,
               std::string* reason = nullptr);

// Writes size bytes to path through a new temporary file in the same directory, moved over
// path only once every byte is written: path then holds its old contents or the new ones,
// never a part, and no temporary is left on any path. reason as read_file. Implemented per
// system.
bool replace_file(const char* path, const void* data, std::size_t size, std::string* reason = nullptr);

// Standard input read to its end, and bytes written to standard output, both unaltered
// (binary mode where the system distinguishes it). reason as read_file.
bool read_stdin(std::vector<unsigned char>* out, std::string* reason = nullptr);
bool write_stdout(const void* data, std::size_t size, std::string* reason = nullptr);

// The file a chain of symbolic links starting at path ends in (path itself when it is not a
// link; the end of the chain need not exist yet). Empty, with reason, for a chain that loops
// or cannot be read.
std::string link_target(const std::string& path, std::string* reason = nullptr);

// The existing regular files matching pattern, sorted: `*` and `?` may appear in its last
// component only (a pattern without them names one file). Empty when nothing matches.
std::vector<std::string> glob_files(const std::string& pattern);

// Creates the directory path and its missing parents; true when it exists afterwards.
bool make_directories(const std::string& path, std::string* reason = nullptr);

// Whether stream writes to a terminal. Implemented per system.
bool is_terminal(std::FILE* stream);

// A fresh name for replace_file's temporary: path, ".~kv", the process's number and a count
// that no earlier call of this process gave, so no two writers try the same name.
std::string temp_name_beside(const char* path, unsigned long process);

}  // namespace kivplat

#endif
