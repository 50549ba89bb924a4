// KivImage: an image of kivlib for .NET.  Every operation of the library's table is reachable
// through Call (or CallStatic for those without an image), which converts each argument by the
// type the table gives it; KivImage.Operations.cs adds a typed method per operation.
using System;
using System.Collections.Generic;
using System.IO;
using System.Runtime.InteropServices;
using System.Text;

namespace Kiv
{
    /// <summary>One argument of an operation, as the library's table describes it.</summary>
    public sealed class KivArgument
    {
        public string Name { get; internal set; }
        public int Type { get; internal set; }
        public string Range { get; internal set; }
        public IDictionary<string, int> Choices { get; internal set; }
    }

    /// <summary>One operation of the library's table.</summary>
    public sealed class KivOperation
    {
        public string Name { get; internal set; }
        public string Summary { get; internal set; }
        public bool Static { get; internal set; }
        public IList<KivArgument> Arguments { get; internal set; }
        internal int Index, Result;
    }

    /// <summary>An image: width x height four-byte pixels (red, green, blue, alpha); depths
    /// below 24 bits also carry a colour map, each pixel's index in its fourth byte.  A refused
    /// call throws ArgumentException with the library's reason and leaves the image as it was;
    /// a disposed image throws ObjectDisposedException.  One call at a time runs on an image;
    /// different images may be used from different threads.</summary>
    public sealed partial class KivImage : IDisposable
    {
        // Table types (KIV_T_* of kivc.h).
        internal const int TInt = 1, TUint = 2, TReal = 3, TBool = 4, TChoice = 5, TColor = 6, TRect = 7, TImage = 8,
            TString = 9, TColors = 10, TStops = 11, TSysCols = 12, TInts = 13, TBytes = 14, TDib = 15, TPalette = 16, TUlong = 17;

        sealed class Handle : SafeHandle
        {
            internal Handle(IntPtr p) : base(IntPtr.Zero, true) { SetHandle(p); }
            public override bool IsInvalid { get { return handle == IntPtr.Zero; } }
            protected override bool ReleaseHandle() { Native.kiv_image_free(handle); return true; }
        }

        Handle h;
        readonly object gate = new object();

        /// <summary>A zero-filled image (0, 0, 0: an empty one).</summary>
        public KivImage(int width, int height, int bits = 24)
        {
            IntPtr p = Native.kiv_image_new(width, height, bits);
            if (p == IntPtr.Zero) throw new ArgumentException(Native.LastError());
            h = new Handle(p);
        }

        KivImage(IntPtr p) { h = new Handle(p); }

        public void Dispose() { lock (gate) { if (h != null) h.Dispose(); h = null; } }

        /// <summary>The library's version, "MAJOR.MINOR.PATCH".</summary>
        public static string Version { get { return Marshal.PtrToStringAnsi(Native.kiv_version()); } }

        /// <summary>Cap the library's threads per operation: 0 all cores, 1 the calling thread.</summary>
        public static int Threads { get { return Native.kiv_getthreads(); } set { Native.kiv_setthreads(value); } }

        Native.ProgressFn progressFn;  // held while the library may call it

        /// <summary>Watch and stop this image's long operations: progress(done, total) is called on
        /// the calling thread with total 100 and done rising from 0 to 100; true stops the call,
        /// which throws OperationCanceledException and leaves the image as it was.  null removes
        /// it.</summary>
        public Func<int, int, bool> Progress
        {
            set
            {
                lock (gate)
                {
                    if (h == null) throw new ObjectDisposedException("KivImage");
                    progressFn = value == null ? null : new Native.ProgressFn((u, done, total) => value(done, total) ? 1 : 0);
                    Native.kiv_set_progress(h.DangerousGetHandle(), progressFn, IntPtr.Zero);
                }
            }
        }

        T With<T>(Func<IntPtr, T> f)
        {
            lock (gate)
            {
                if (h == null) throw new ObjectDisposedException("KivImage");
                return f(h.DangerousGetHandle());
            }
        }

        public int Width { get { return With(Native.kiv_width); } }
        public int Height { get { return With(Native.kiv_height); } }
        public int Bits { get { return With(Native.kiv_bits); } }
        public int Colors { get { return With(Native.kiv_colors); } }

        /// <summary>A deep copy: pixels, depth and colour map.</summary>
        public KivImage Copy()
        {
            IntPtr p = With(Native.kiv_image_copy);
            if (p == IntPtr.Zero) throw new OutOfMemoryException(Native.LastError());
            return new KivImage(p);
        }

        /// <summary>A copy of the pixels: Height rows of Width x 4 bytes (r, g, b, a), top row first.</summary>
        public byte[] GetPixels()
        {
            return With(p => {
                byte[] px = new byte[(long)Native.kiv_width(p) * Native.kiv_height(p) * 4];
                if (px.Length > 0) Marshal.Copy(Native.kiv_pixels(p), px, 0, px.Length);
                return px;
            });
        }

        /// <summary>Replace the pixels with Width x Height x 4 bytes laid out as GetPixels gives them.</summary>
        public void SetPixels(byte[] pixels)
        {
            With(p => {
                long n = (long)Native.kiv_width(p) * Native.kiv_height(p) * 4;
                if (pixels == null || pixels.Length != n)
                    throw new ArgumentException("SetPixels: pixels must hold width x height x 4 = " + n + " bytes");
                if (n > 0) Marshal.Copy(pixels, 0, Native.kiv_pixels(p), pixels.Length);
                return 0;
            });
        }

        /// <summary>A new image of a packed DIB (header, colour table, rows bottom-up) read by
        /// attachdib; full: by the full reader (every header, depth and compression; CF_DIBV5).</summary>
        public static KivImage FromDib(byte[] dib, bool full = false)
        {
            KivImage img = new KivImage(0, 0, 0);
            try { if (full) img.AttachdibAnyBytes(dib); else img.Attachdib(dib); } catch { img.Dispose(); throw; }
            return img;
        }

        /// <summary>The image as a packed DIB.</summary>
        public byte[] ToDib() { return Createdib(); }

        /// <summary>Read a BMP file of any form (every header, depth and compression) through the
        /// library's full reader; ArgumentException with its reason when it refuses the file.</summary>
        public static KivImage Open(string path)
        {
            byte[] f = File.ReadAllBytes(path);
            KivImage img = new KivImage(0, 0, 0);
            try { img.LoadbmpBytes(f); }
            catch (ArgumentException e) { img.Dispose(); throw new ArgumentException(path + ": " + e.Message); }
            return img;
        }

        /// <summary>Write the image as a BMP file (replaced only when completely written).</summary>
        public void Save(string path)
        {
            // An image with alpha as a 32-bit V5 file whose bit fields keep it.
            byte[] dib = Bits == 32 ? CreatedibAlpha(0) : ToDib();
            int used = BitConverter.ToInt32(dib, 32), bits = BitConverter.ToInt16(dib, 14);
            int off = 14 + BitConverter.ToInt32(dib, 0) + 4 * (used != 0 ? used : bits <= 8 ? 1 << bits : 0);
            byte[] file = new byte[14 + dib.Length];
            file[0] = (byte)'B';
            file[1] = (byte)'M';
            BitConverter.GetBytes(file.Length).CopyTo(file, 2);
            BitConverter.GetBytes(off).CopyTo(file, 10);
            dib.CopyTo(file, 14);
            string tmp = path + ".tmp";
            File.WriteAllBytes(tmp, file);
            if (File.Exists(path)) File.Delete(path);
            File.Move(tmp, path);
        }

        // ---- The operation table -------------------------------------------------------
        static Dictionary<string, KivOperation> table;

        /// <summary>Every operation of the library's table, by name.</summary>
        public static IDictionary<string, KivOperation> Operations
        {
            get
            {
                if (table != null) return table;
                var t = new Dictionary<string, KivOperation>();
                for (int k = 0; k < Native.kiv_op_count(); ++k)
                {
                    var d = (KivOpDesc)Marshal.PtrToStructure(Native.kiv_op_info(k), typeof(KivOpDesc));
                    var args = new List<KivArgument>();
                    for (int j = 0; j < d.NArgs; ++j)
                    {
                        var a = (KivArgDesc)Marshal.PtrToStructure(d.Args + j * Marshal.SizeOf(typeof(KivArgDesc)), typeof(KivArgDesc));
                        var choices = new Dictionary<string, int>();
                        for (int c = 0; c < a.NChoices; ++c)
                        {
                            var ch = (KivChoice)Marshal.PtrToStructure(a.Choices + c * Marshal.SizeOf(typeof(KivChoice)), typeof(KivChoice));
                            choices[Marshal.PtrToStringAnsi(ch.Name)] = ch.Value;
                        }
                        args.Add(new KivArgument { Name = Marshal.PtrToStringAnsi(a.Name), Type = a.Type,
                                                   Range = Marshal.PtrToStringAnsi(a.Range), Choices = choices });
                    }
                    var op = new KivOperation { Name = Marshal.PtrToStringAnsi(d.Name), Summary = Marshal.PtrToStringAnsi(d.Summary),
                                                Static = (d.Flags & 3) != 0, Arguments = args, Index = k, Result = d.Result };
                    t[op.Name] = op;
                }
                return table = t;
            }
        }

        static KivOperation Find(string name, bool isStatic)
        {
            KivOperation op;
            if (name == null || !Operations.TryGetValue(name, out op)) throw new ArgumentException("no operation named " + name);
            if (op.Static != isStatic)
                throw new ArgumentException(name + (isStatic ? " works on an image: use Call" : " takes no image: use CallStatic"));
            return op;
        }

        /// <summary>Run operation name of the table on this image with its arguments in the table's
        /// order (rect: a Rect or null; choices: their number or name).  Returns null, or the
        /// operation's result: a ulong count, a DIB's bytes, a palette's Rgb[].</summary>
        public object Call(string name, params object[] args) { return Run(Find(name, false), this, args); }

        /// <summary>Run an operation without an image (make_gradtable, kivQuantize...).</summary>
        public static object CallStatic(string name, params object[] args) { return Run(Find(name, true), null, args); }

        static long lastId;
        readonly long id = System.Threading.Interlocked.Increment(ref lastId);

        static object Run(KivOperation op, KivImage self, object[] args)
        {
            args = args ?? new object[] { null };
            if (args.Length != op.Arguments.Count)
                throw new ArgumentException(op.Name + ": takes " + op.Arguments.Count + " arguments (got " + args.Length + ")");
            var memory = new List<IntPtr>();
            var globals = new List<IntPtr>();
            var images = new List<KivImage>();
            if (self != null) images.Add(self);
            try
            {
                var values = new KivValue[Math.Max(1, args.Length)];
                for (int k = 0; k < args.Length; ++k) values[k] = ToValue(op, op.Arguments[k], args[k], memory, globals, images);
                // This image and the argument images are held, always in the same order, so that
                // another thread can neither free nor change them during the call.
                images.Sort((a, b) => a.id.CompareTo(b.id));
                KivValue res;
                int ok, held = 0;
                try
                {
                    for (; held < images.Count; ++held) System.Threading.Monitor.Enter(images[held].gate);
                    foreach (KivImage i in images)
                        if (i.h == null) throw new ObjectDisposedException("KivImage");
                    ok = Native.kiv_op_call(self == null ? IntPtr.Zero : self.h.DangerousGetHandle(), op.Index, values, args.Length, out res);
                }
                finally
                {
                    while (held > 0) System.Threading.Monitor.Exit(images[--held].gate);
                }
                if (ok == 0)
                {
                    string why = Native.LastError();
                    if (why.EndsWith("out of memory")) throw new OutOfMemoryException(why);
                    if (why.EndsWith(": cancelled")) throw new OperationCanceledException(why);
                    throw new ArgumentException(why);
                }
                return Result(op, res);
            }
            finally
            {
                foreach (IntPtr p in memory) Marshal.FreeHGlobal(p);
                foreach (IntPtr p in globals) GlobalMemory.Free(p);
            }
        }

        static object Result(KivOperation op, KivValue res)
        {
            if (op.Result == TUlong) return (ulong)res.I;
            if (op.Result == TDib) return GlobalMemory.TakeDib(res.P);
            if (op.Result != TPalette) return null;
            try
            {
                var entries = new Rgb[(ushort)Marshal.ReadInt16(res.P, 2)];
                for (int k = 0; k < entries.Length; ++k)
                    entries[k] = new Rgb(Marshal.ReadByte(res.P, 4 + 4 * k), Marshal.ReadByte(res.P, 5 + 4 * k), Marshal.ReadByte(res.P, 6 + 4 * k));
                return entries;
            }
            finally
            {
                Native.kiv_free_gradtable(res.P);
            }
        }

        static ArgumentException Wrong(KivOperation op, KivArgument a, object x, string want)
        {
            return new ArgumentException(op.Name + ": " + a.Name + " must be " + want + " (got " + (x == null ? "null" : x.GetType().Name) + ")", a.Name);
        }

        static long Integer(KivOperation op, KivArgument a, object x)
        {
            string name = x as string;
            if (name != null && a.Choices.Count > 0)
            {
                int v;
                if (!a.Choices.TryGetValue(name, out v)) throw new ArgumentException(op.Name + ": " + a.Name + " has no choice " + name, a.Name);
                return v;
            }
            if (x is bool) return (bool)x ? 1 : 0;
            if (x is int || x is long || x is short || x is sbyte || x is byte || x is ushort || x is uint) return Convert.ToInt64(x);
            if (x is ulong && (ulong)x <= long.MaxValue) return (long)(ulong)x;
            throw Wrong(op, a, x, "an integer");
        }

        static IntPtr Copy(byte[] data, List<IntPtr> memory)
        {
            IntPtr p = Marshal.AllocHGlobal(Math.Max(1, data.Length));
            memory.Add(p);
            Marshal.Copy(data, 0, p, data.Length);
            return p;
        }

        static KivValue ToValue(KivOperation op, KivArgument a, object x, List<IntPtr> memory, List<IntPtr> globals, List<KivImage> images)
        {
            var v = new KivValue { Type = a.Type };
            switch (a.Type)
            {
                case TInt: case TUint: case TBool: case TChoice: case TColor:
                    v.I = Integer(op, a, x);
                    return v;
                case TReal:
                    if (!(x is double || x is float || x is int || x is long)) throw Wrong(op, a, x, "a number");
                    v.D = Convert.ToDouble(x);
                    return v;
            }
            if (x == null) return v;  // a null pointer: the library accepts or refuses it with its reason
            var bytes = new List<byte>();
            switch (a.Type)
            {
                case TRect:
                    if (!(x is Rect)) throw Wrong(op, a, x, "a Rect");
                    Rect r = (Rect)x;
                    foreach (int c in new[] { r.Left, r.Top, r.Right, r.Bottom }) bytes.AddRange(BitConverter.GetBytes(c));
                    break;
                case TImage:
                    KivImage img = x as KivImage;
                    if (img == null) throw Wrong(op, a, x, "a KivImage");
                    Handle ih = img.h;
                    if (ih == null) throw new ObjectDisposedException("KivImage");
                    if (!images.Contains(img)) images.Add(img);
                    v.P = ih.DangerousGetHandle();
                    return v;
                case TString:
                    string s = x as string;
                    if (s == null) throw Wrong(op, a, x, "a string");
                    if (s.IndexOf('\0') >= 0) throw new ArgumentException(op.Name + ": " + a.Name + " contains a NUL character", a.Name);
                    bytes.AddRange(Encoding.Default.GetBytes(s));
                    bytes.Add(0);
                    break;
                case TDib:
                    if (!(x is byte[])) throw Wrong(op, a, x, "a byte[] packed DIB");
                    v.P = GlobalMemory.From((byte[])x);
                    globals.Add(v.P);
                    return v;
                case TBytes:
                    if (!(x is byte[])) throw Wrong(op, a, x, "a byte[]");
                    bytes.AddRange((byte[])x);
                    v.N = bytes.Count;
                    break;
                case TColors:
                    if (!(x is uint[])) throw Wrong(op, a, x, "a uint[] of colours");
                    foreach (uint c in (uint[])x) bytes.AddRange(BitConverter.GetBytes(c));
                    v.N = ((uint[])x).Length;
                    break;
                case TStops:
                    if (!(x is GradColor[])) throw Wrong(op, a, x, "a GradColor[]");
                    foreach (GradColor g in (GradColor[])x) { bytes.AddRange(BitConverter.GetBytes(g.Color)); bytes.AddRange(BitConverter.GetBytes(g.Pos)); }
                    v.N = ((GradColor[])x).Length;
                    break;
                case TInts:
                    if (!(x is int[])) throw Wrong(op, a, x, "an int[]");
                    foreach (int i in (int[])x) bytes.AddRange(BitConverter.GetBytes(i));
                    v.N = ((int[])x).Length;
                    break;
                case TSysCols: case TPalette:
                    Rgb[] cols = x as Rgb[];
                    if (cols == null) throw Wrong(op, a, x, "an Rgb[]");
                    if (a.Type == TPalette)
                    {
                        if (cols.Length > 65535) throw new ArgumentException(op.Name + ": " + a.Name + " has more than 65535 entries", a.Name);
                        bytes.AddRange(new byte[] { 0, 3, (byte)cols.Length, (byte)(cols.Length >> 8) });
                    }
                    foreach (Rgb c in cols)
                    {
                        bytes.AddRange(new[] { c.R, c.G, c.B });
                        if (a.Type == TPalette) bytes.Add(0);
                    }
                    v.N = cols.Length;
                    break;
                default:
                    throw Wrong(op, a, x, "of a type this binding does not know");
            }
            v.P = Copy(bytes.ToArray(), memory);
            if (a.Type == TPalette || a.Type == TRect || a.Type == TString) v.N = 0;
            return v;
        }
    }
}
