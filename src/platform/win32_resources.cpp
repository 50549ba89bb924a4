// Module resources on Windows.
#include <windows.h>

#include "platform/resources.h"

namespace kivplat {

const void* find_resource(void* module, const char* name, unsigned type, std::size_t* size) {
    *size = 0;
    const auto mod = static_cast<HMODULE>(module);
    HRSRC res = FindResourceA(mod, name, MAKEINTRESOURCEA(type));
    if (!res) return nullptr;
    HGLOBAL loaded = LoadResource(mod, res);
    const void* data = loaded ? LockResource(loaded) : nullptr;
    if (data) *size = SizeofResource(mod, res);
    return data;
}

}  // namespace kivplat
