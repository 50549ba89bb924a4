// A minimal Win32 host: loads a BMP, turns it grey with kivlib and shows it in a window
// through a GDI bitmap made by the library.
//   win32_viewer FILE.bmp     show the file
//   win32_viewer --selftest   run the same path without a window (exit code 0 = passed)
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "kiv.h"

namespace {

HBITMAP g_bitmap = nullptr;
HPALETTE g_palette = nullptr;

bool load_bmp(const char* path, kiv& img) {
    FILE* f = std::fopen(path, "rb");
    if (!f) return false;
    std::vector<unsigned char> bytes;
    unsigned char buf[65536];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;) bytes.insert(bytes.end(), buf, buf + n);
    std::fclose(f);
    if (bytes.size() < 14 + 40 || bytes[0] != 'B' || bytes[1] != 'M') return false;
    HGLOBAL dib = GlobalAlloc(GMEM_MOVEABLE, bytes.size() - 14);
    if (!dib) return false;
    std::memcpy(GlobalLock(dib), bytes.data() + 14, bytes.size() - 14);
    GlobalUnlock(dib);
    int ok = img.attachdib(dib);
    GlobalFree(dib);
    return ok != 0;
}

LRESULT CALLBACK wndproc(HWND wnd, UINT msg, WPARAM wp, LPARAM lp) {
    if (msg == WM_PAINT) {
        PAINTSTRUCT ps;
        HDC dc = BeginPaint(wnd, &ps);
        HDC mem = CreateCompatibleDC(dc);
        HGDIOBJ old = SelectObject(mem, g_bitmap);
        BITMAP bm;
        GetObjectA(g_bitmap, sizeof bm, &bm);
        BitBlt(dc, 0, 0, bm.bmWidth, bm.bmHeight, mem, 0, 0, SRCCOPY);
        SelectObject(mem, old);
        DeleteDC(mem);
        EndPaint(wnd, &ps);
        return 0;
    }
    if (msg == WM_DESTROY) {
        PostQuitMessage(0);
        return 0;
    }
    return DefWindowProcA(wnd, msg, wp, lp);
}

// The host's round trip without a window: pixels -> DIB -> image -> operation -> GDI
// bitmap -> image again, checking what comes back.
int selftest() {
    kiv img(64, 48, 24);
    if (!img.pixels()) return 1;
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 64; ++x) *img.pos(x, y) = tagRGBA{BYTE(x * 4), BYTE(y * 5), BYTE(x + y), 0};
    HGLOBAL dib = static_cast<HGLOBAL>(img.createdib());
    kiv loaded(dib);
    GlobalFree(dib);
    if (!loaded.pixels() || loaded.width() != 64) return 2;
    loaded.grayscale();
    if (loaded.bits() != 8) return 3;
    HPALETTE pal = nullptr;
    HBITMAP bmp = loaded.createbitmap(&pal);
    if (!bmp) return 4;
    kiv back(bmp, pal);
    DeleteObject(bmp);
    if (pal) DeleteObject(pal);
    if (!back.pixels() || back.width() != 64 || back.height() != 48) return 5;
    for (int i = 0; i < back.packets(); ++i) {
        const tagRGBA& p = back.pixels()[i];
        const tagRGBA& q = loaded.pixels()[i];
        if (p.r != q.r || p.g != q.g || p.b != q.b) return 6;
    }
    std::printf("selftest passed\n");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--selftest") == 0) return selftest();
    if (argc != 2) {
        std::fprintf(stderr, "usage: win32_viewer FILE.bmp | --selftest\n");
        return 2;
    }
    kiv img;
    if (!load_bmp(argv[1], img)) {
        std::fprintf(stderr, "win32_viewer: cannot read %s\n", argv[1]);
        return 1;
    }
    img.grayscale();
    g_bitmap = img.createbitmap(&g_palette);
    if (!g_bitmap) return 1;
    WNDCLASSA wc{};
    wc.lpfnWndProc = wndproc;
    wc.hInstance = GetModuleHandleA(nullptr);
    wc.hCursor = LoadCursor(nullptr, IDC_ARROW);
    wc.lpszClassName = "kivlib_viewer";
    RegisterClassA(&wc);
    RECT r{0, 0, img.width(), img.height()};
    AdjustWindowRect(&r, WS_OVERLAPPEDWINDOW, FALSE);
    HWND wnd = CreateWindowA("kivlib_viewer", "kivlib viewer", WS_OVERLAPPEDWINDOW | WS_VISIBLE, CW_USEDEFAULT,
                             CW_USEDEFAULT, r.right - r.left, r.bottom - r.top, nullptr, nullptr, wc.hInstance, nullptr);
    if (!wnd) return 1;
    MSG msg;
    while (GetMessageA(&msg, nullptr, 0, 0) > 0) {
        TranslateMessage(&msg);
        DispatchMessageA(&msg);
    }
    DeleteObject(g_bitmap);
    if (g_palette) DeleteObject(g_palette);
    return 0;
}
