// The members that read every DIB and BMP form and write 32-bit DIBs with alpha: the one
// place where they meet global memory and files; the parsing sees plain bytes.
#include <cstdio>
#include <exception>
#include <vector>

#include "interchange/dib_codec.h"
#include "palette/dibformat.h"

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

const char* read_file(const char* path, std::vector<unsigned char>* out) {
    std::FILE* f = std::fopen(path, "rb");
    if (!f) return "cannot open the file";
    unsigned char buf[65536];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out->insert(out->end(), buf, buf + n);
    const bool bad = std::ferror(f) != 0;
    std::fclose(f);
    return bad ? "cannot read the file" : nullptr;
}

// A failed write removes what it left, so no partial file stays under path.
const char* write_file(const char* path, const std::vector<unsigned char>& bytes) {
    std::FILE* f = std::fopen(path, "wb");
    if (!f) return "cannot create the file";
    bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    ok = std::fclose(f) == 0 && ok;
    if (!ok) std::remove(path);
    return ok ? nullptr : "cannot write the file";
}

bool bad_premultiplied(int premultiplied) { return premultiplied < 0 || premultiplied > 1; }

}  // namespace

int kiv::attachdib_any(void* dib, const char** reason) {
    if (!dib) return report(reason, "no DIB handle");
    const std::size_t size = GlobalSize(dib);
    const kivpal::LockedDib lock(dib);
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
        const char* why = read_file(path, &bytes);
        return why ? why : kivdib::read_bmp_file(bytes.data(), bytes.size(), got);
    });
}

int kiv::loadbmp_bytes(const void* data, size_t size, const char** reason) {
    const auto* p = static_cast<const unsigned char*>(data);
    return take(this, reason, [&](kiv* got) { return kivdib::read_bmp_file(p, size, got); });
}

void* kiv::createdib_alpha(int premultiplied) {
    const std::uint64_t n = kivdib::dibv5_bytes(*this);
    if (bad_premultiplied(premultiplied) || !n || n > SIZE_MAX) return nullptr;
    HGLOBAL dib = GlobalAlloc(GMEM_MOVEABLE, static_cast<SIZE_T>(n));
    if (!dib) return nullptr;
    const kivpal::LockedDib lock(dib);
    if (!lock.data()) return GlobalFree(dib), nullptr;
    kivdib::write_dibv5(*this, premultiplied != 0, lock.data());
    return dib;
}

int kiv::savebmp_alpha(const char* path, int premultiplied, const char** reason) {
    if (!path || !*path) return report(reason, "no file name");
    if (bad_premultiplied(premultiplied)) return report(reason, "premultiplied is neither 0 nor 1");
    const std::uint64_t n = kivdib::dibv5_bytes(*this);
    if (!n) return report(reason, "the image is empty");
    const std::uint64_t total = kivdib::kFileHeaderBytes + n;
    if (total > 0xFFFFFFFFu) return report(reason, "the image is too large for a BMP file");
    try {
        std::vector<unsigned char> file(static_cast<std::size_t>(total), 0);
        file[0] = 'B';
        file[1] = 'M';
        kivdib::put32(&file[2], static_cast<std::uint32_t>(total));
        kivdib::put32(&file[10], static_cast<std::uint32_t>(kivdib::kFileHeaderBytes + kivdib::kV5HeaderBytes));
        kivdib::write_dibv5(*this, premultiplied != 0, &file[kivdib::kFileHeaderBytes]);
        return report(reason, write_file(path, file));
    } catch (const std::exception&) {
        return report(reason, "out of memory");
    }
}
