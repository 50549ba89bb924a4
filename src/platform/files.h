// Whole files: read at once, and replaced atomically through a temporary beside them.
#ifndef KIV_PLATFORM_FILES_H
#define KIV_PLATFORM_FILES_H

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace kivplat {

// The whole file at path into *out (its contents replaced); false when the file cannot be
// opened or read, or holds more than max_bytes.
bool read_file(const char* path, std::size_t max_bytes, std::vector<unsigned char>* out);

// Writes size bytes to path through a new temporary file in the same directory, moved over
// path only once every byte is written: path then holds its old contents or the new ones,
// never a part, and no temporary is left on any path. Implemented per system.
bool replace_file(const char* path, const void* data, std::size_t size);

// Whether stream writes to a terminal. Implemented per system.
bool is_terminal(std::FILE* stream);

// A fresh name for replace_file's temporary: path, ".~kv", the process's number and a count
// that no earlier call of this process gave, so no two writers try the same name.
std::string temp_name_beside(const char* path, unsigned long process);

}  // namespace kivplat

#endif
