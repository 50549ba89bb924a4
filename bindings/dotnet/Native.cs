// P/Invoke declarations of kivc.h: the image handle, its accessors, the operation table and its
// generic call, and the movable global memory in which packed DIBs travel.  DllImport "kivlib"
// is kivlib.dll on Windows and libkivlib.so elsewhere (Kiv.dll.config maps it for Mono).
using System;
using System.Runtime.InteropServices;

namespace Kiv
{
    /// <summary>A rectangle as in Win32: right and bottom are exclusive.</summary>
    [StructLayout(LayoutKind.Sequential)]
    public struct Rect
    {
        public int Left, Top, Right, Bottom;
        public Rect(int left, int top, int right, int bottom) { Left = left; Top = top; Right = right; Bottom = bottom; }
    }

    /// <summary>A gradient stop: a COLORREF (0xBBGGRR) at a position 0..1000.</summary>
    [StructLayout(LayoutKind.Sequential)]
    public struct GradColor
    {
        public uint Color;
        public int Pos;
        public GradColor(uint color, int pos) { Color = color; Pos = pos; }
    }

    /// <summary>A colour of a palette: red, green, blue.</summary>
    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    public struct Rgb
    {
        public byte R, G, B;
        public Rgb(byte r, byte g, byte b) { R = r; G = g; B = b; }
    }

    [StructLayout(LayoutKind.Sequential)]
    internal struct KivValue
    {
        public int Type, N;
        public long I;
        public double D;
        public IntPtr P;
    }

    [StructLayout(LayoutKind.Sequential)]
    internal struct KivChoice
    {
        public int Value;
        public IntPtr Name;
    }

    [StructLayout(LayoutKind.Sequential)]
    internal struct KivArgDesc
    {
        public IntPtr Name, Unit, Help, Range, Choices;
        public int NChoices, Type, Flags, Below, Above;
        public double Lo, Hi, BelowValue, AboveValue, Def;
    }

    [StructLayout(LayoutKind.Sequential)]
    internal struct KivOpDesc
    {
        public IntPtr Name, Family, Summary, Refuses, Record, Args;
        public int NArgs, Result, Flags;
    }

    internal static class Native
    {
        const string Lib = "kivlib";
        [DllImport(Lib)] public static extern IntPtr kiv_image_new(int width, int height, int bits);
        [DllImport(Lib)] public static extern IntPtr kiv_image_copy(IntPtr img);
        [DllImport(Lib)] public static extern void kiv_image_free(IntPtr img);
        [DllImport(Lib)] public static extern int kiv_width(IntPtr img);
        [DllImport(Lib)] public static extern int kiv_height(IntPtr img);
        [DllImport(Lib)] public static extern int kiv_bits(IntPtr img);
        [DllImport(Lib)] public static extern int kiv_colors(IntPtr img);
        [DllImport(Lib)] public static extern IntPtr kiv_pixels(IntPtr img);
        [DllImport(Lib)] public static extern IntPtr kiv_map(IntPtr img);
        [DllImport(Lib)] public static extern IntPtr kiv_last_error();
        [DllImport(Lib)] public static extern IntPtr kiv_version();
        [DllImport(Lib)] public static extern void kiv_setthreads(int n);
        [DllImport(Lib)] public static extern int kiv_getthreads();
        [DllImport(Lib)] public static extern int kiv_op_count();
        [DllImport(Lib)] public static extern IntPtr kiv_op_info(int op);
        [DllImport(Lib)] public static extern int kiv_op_call(IntPtr img, int op, [In] KivValue[] args, int nargs, out KivValue result);
        [DllImport(Lib)] public static extern void kiv_free_gradtable(IntPtr palette);
        // kivProgressFn: nonzero stops the call.
        [UnmanagedFunctionPointer(CallingConvention.Cdecl)] public delegate int ProgressFn(IntPtr user, int done, int total);
        [DllImport(Lib)] public static extern void kiv_set_progress(IntPtr img, ProgressFn fn, IntPtr user);

        public static string LastError()
        {
            string s = Marshal.PtrToStringAnsi(kiv_last_error());
            return string.IsNullOrEmpty(s) ? "refused" : s;
        }
    }

    /// <summary>Movable global memory: the system's on Windows; elsewhere the library's own,
    /// exported under a kiv prefix by newer builds and under the Win32 names by older ones.</summary>
    internal static class GlobalMemory
    {
        const uint Moveable = 2;
        [DllImport("kernel32", EntryPoint = "GlobalAlloc")] static extern IntPtr WAlloc(uint f, UIntPtr n);
        [DllImport("kernel32", EntryPoint = "GlobalLock")] static extern IntPtr WLock(IntPtr h);
        [DllImport("kernel32", EntryPoint = "GlobalUnlock")] static extern int WUnlock(IntPtr h);
        [DllImport("kernel32", EntryPoint = "GlobalSize")] static extern UIntPtr WSize(IntPtr h);
        [DllImport("kernel32", EntryPoint = "GlobalFree")] static extern IntPtr WFree(IntPtr h);
        [DllImport("kivlib", EntryPoint = "kiv_GlobalAlloc")] static extern IntPtr KAlloc(uint f, UIntPtr n);
        [DllImport("kivlib", EntryPoint = "kiv_GlobalLock")] static extern IntPtr KLock(IntPtr h);
        [DllImport("kivlib", EntryPoint = "kiv_GlobalUnlock")] static extern int KUnlock(IntPtr h);
        [DllImport("kivlib", EntryPoint = "kiv_GlobalSize")] static extern UIntPtr KSize(IntPtr h);
        [DllImport("kivlib", EntryPoint = "kiv_GlobalFree")] static extern IntPtr KFree(IntPtr h);
        [DllImport("kivlib", EntryPoint = "GlobalAlloc")] static extern IntPtr PAlloc(uint f, UIntPtr n);
        [DllImport("kivlib", EntryPoint = "GlobalLock")] static extern IntPtr PLock(IntPtr h);
        [DllImport("kivlib", EntryPoint = "GlobalUnlock")] static extern int PUnlock(IntPtr h);
        [DllImport("kivlib", EntryPoint = "GlobalSize")] static extern UIntPtr PSize(IntPtr h);
        [DllImport("kivlib", EntryPoint = "GlobalFree")] static extern IntPtr PFree(IntPtr h);

        static readonly int Flavour = Pick(); // 0 Windows, 1 kiv-prefixed, 2 Win32 names

        static int Pick()
        {
            if (Environment.OSVersion.Platform == PlatformID.Win32NT) return 0;
            try { KSize(IntPtr.Zero); return 1; } catch (EntryPointNotFoundException) { return 2; }
        }

        static IntPtr Lock(IntPtr h) { return Flavour == 0 ? WLock(h) : Flavour == 1 ? KLock(h) : PLock(h); }
        static void Unlock(IntPtr h) { if (Flavour == 0) WUnlock(h); else if (Flavour == 1) KUnlock(h); else PUnlock(h); }
        static ulong Size(IntPtr h) { return (Flavour == 0 ? WSize(h) : Flavour == 1 ? KSize(h) : PSize(h)).ToUInt64(); }

        public static void Free(IntPtr h)
        {
            if (h == IntPtr.Zero) return;
            if (Flavour == 0) WFree(h); else if (Flavour == 1) KFree(h); else PFree(h);
        }

        /// <summary>A new block holding data (null for no data: the library refuses it).</summary>
        public static IntPtr From(byte[] data)
        {
            if (data == null || data.Length == 0) return IntPtr.Zero;
            UIntPtr n = new UIntPtr((uint)data.Length);
            IntPtr h = Flavour == 0 ? WAlloc(Moveable, n) : Flavour == 1 ? KAlloc(Moveable, n) : PAlloc(Moveable, n);
            if (h == IntPtr.Zero) throw new OutOfMemoryException("kivlib: no global memory for the DIB");
            Marshal.Copy(data, 0, Lock(h), data.Length);
            Unlock(h);
            return h;
        }

        /// <summary>The bytes of a packed DIB the library made (header, table and rows; it adds
        /// slack rows), after which the block is freed.</summary>
        public static byte[] TakeDib(IntPtr h)
        {
            try
            {
                ulong size = Size(h);
                IntPtr p = Lock(h);
                if (p == IntPtr.Zero || size < 40) return new byte[0];
                int header = Marshal.ReadInt32(p, 0);  // 40, or 124 for CreatedibAlpha's V5 header
                int width = Math.Abs(Marshal.ReadInt32(p, 4)), height = Math.Abs(Marshal.ReadInt32(p, 8));
                int bits = Marshal.ReadInt16(p, 14), used = Marshal.ReadInt32(p, 32);
                long table = 4L * (used != 0 ? used : bits <= 8 ? 1 << bits : 0);
                long length = Math.Min((long)size, header + table + ((long)width * bits + 31) / 32 * 4 * height);
                byte[] data = new byte[length];
                Marshal.Copy(p, data, 0, data.Length);
                Unlock(h);
                return data;
            }
            finally
            {
                Free(h);
            }
        }
    }
}
