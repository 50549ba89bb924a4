// The members that read every DIB and BMP form and write 32-bit DIBs with alpha: the one
// place where they meet global memory and files (through the platform layer); the parsing
// sees plain bytes.
#include <cstdint>
#include <exception>
#include <vector>

#include "interchange/bmpfile.h"
#include "interchange/dib_codec.h"
#include "platform/files.h"
#include "platform/global_memory.h"

namespace {

// Stores why (null on success) where the caller asked for it; 1 on success, else 0.
int report(const char** reason, const char* why) {
    if (reason) *reason = why;
    return why ? 0 : 1;
}

// Reads into a fresh image and takes it only on success, so a refusal leaves this image as
// it was; memory running out is a refusal too.
template <class Read>
int take(kiv* self, const char** reason, Read read) {
    try {
        kiv got;
        if (const char* why = read(&got)) return report(reason, why);
        self->movefrom(&got);
        return report(reason, nullptr);
    } catch (const std::exception&) {
        return report(reason, "out of memory");
    }
}

bool bad_premultiplied(int premultiplied) { return premultiplied < 0 || premultiplied > 1; }

}  // namespace

int kiv::attachdib_any(void* dib, const char** reason) {
    if (!dib) return report(reason, "no DIB handle");
    const std::size_t size = kivplat::global_size(dib);
    const kivplat::LockedBlock lock(dib);
    if (!lock.data()) return report(reason, "the DIB handle cannot be locked");
    return attachdib_any_bytes(lock.data(), size, reason);
}

int kiv::attachdib_any_bytes(const void* data, size_t size, const char** reason) {
    const auto* p = static_cast<const unsigned char*>(data);
    return take(this, reason, [&](kiv* got) { return kivdib::read_packed_dib(p, size, got); });
}

int kiv::loadbmp(const char* path, const char** reason) {
    if (!path || !*path) return report(reason, "no file name");
    return take(this, reason, [&](kiv* got) {
        std::vector<unsigned char> bytes;
        if (!kivplat::read_file(path, SIZE_MAX, &bytes)) return "cannot open or read the file";
        return kivdib::read_bmp_file(bytes.data(), bytes.size(), got);
    });
}

int kiv::loadbmp_bytes(const void* data, size_t size, const char** reason) {
    const auto* p = static_cast<const unsigned char*>(data);
    return take(this, reason, [&](kiv* got) { return kivdib::read_bmp_file(p, size, got); });
}

void* kiv::createdib_alpha(int premultiplied) {
    const std::uint64_t n = kivdib::dibv5_bytes(*this);
    if (bad_premultiplied(premultiplied) || !n || n > SIZE_MAX) return nullptr;
    void* dib = kivplat::global_alloc(static_cast<std::size_t>(n), false);
    if (!dib) return nullptr;
    {
        const kivplat::LockedBlock lock(dib);
        if (lock.data()) {
            kivdib::write_dibv5(*this, premultiplied != 0, lock.data());
            return dib;
        }
    }
    kivplat::global_free(dib);
    return nullptr;
}

int kiv::savebmp_alpha(const char* path, int premultiplied, const char** reason) {
    if (!path || !*path) return report(reason, "no file name");
    if (bad_premultiplied(premultiplied)) return report(reason, "premultiplied is neither 0 nor 1");
    const std::uint64_t n = kivdib::dibv5_bytes(*this);
    if (!n) return report(reason, "the image is empty");
    const std::uint64_t total = kivdib::kFileHeader + n;
    if (total > 0xFFFFFFFFu) return report(reason, "the image is too large for a BMP file");
    try {
        std::vector<unsigned char> file(static_cast<std::size_t>(total), 0);
        file[0] = 'B';
        file[1] = 'M';
        kivdib::put32(&file[2], static_cast<std::uint32_t>(total));
        kivdib::put32(&file[10], static_cast<std::uint32_t>(kivdib::kFileHeader + kivdib::kV5HeaderBytes));
        kivdib::write_dibv5(*this, premultiplied != 0, &file[kivdib::kFileHeader]);
        // Written beside path and moved over it: a failed write leaves no partial file.
        return report(reason,
                      kivplat::replace_file(path, file.data(), file.size()) ? nullptr : "cannot write the file");
    } catch (const std::exception&) {
        return report(reason, "out of memory");
    }
}
