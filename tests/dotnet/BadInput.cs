// Every operation of the table through KivImage.Call with each argument in turn replaced by a
// value of the wrong type, null, out of range or too large, and on a disposed image: only
// ArgumentException, ObjectDisposedException or OutOfMemoryException may come back.
using System;
using System.Linq;
using Kiv;

static class BadInput
{
    static object Good(KivArgument a, byte[] dib)
    {
        if (a.Choices.Count > 0) return a.Choices.Keys.First();
        switch (a.Type)
        {
            case 1: return 1;
            case 2: case 6: return 1u;
            case 3: return 1.0;
            case 4: return false;
            case 8: return new KivImage(4, 3);
            case 9: return "t.bmp";
            case 10: return new uint[] { 0xFF };
            case 11: return new[] { new GradColor(0, 0), new GradColor(0xFFFFFF, 1000) };
            case 12: case 16: return new[] { new Rgb(1, 2, 3) };
            case 13: return new int[9];
            case 14: return new byte[64];
            case 15: return dib;
            case 19: return new[] { new KivImage(4, 3), new KivImage(3, 2) };
        }
        return null;
    }

    static int Main()
    {
        var gone = new KivImage(2, 2);
        gone.Dispose();
        object[] bad = { null, "x", 1.5, double.NaN, new object(), long.MaxValue, -1, ulong.MaxValue, new int[0],
                         new byte[0], new Rect(5, 5, -5, -5), new KivImage(0, 0, 0), gone,
                         new KivImage[] { null }, new KivImage[] { gone } };
        byte[] dib = new KivImage(4, 3).ToDib();
        int calls = 0;
        foreach (var op in KivImage.Operations.Values.Where(o => o.Name != "free_gradtable"))
        {
            var good = op.Arguments.Select(a => Good(a, dib)).ToArray();
            for (int k = -2; k < good.Length; ++k)
                foreach (object b in k < 0 ? new object[] { null } : bad)
                {
                    var args = k == -2 ? good.Take(good.Length / 2).ToArray() : (object[])good.Clone();
                    if (k >= 0) args[k] = b;
                    var img = new KivImage(6, 5);
                    if (k == -1) img.Dispose();
                    ++calls;
                    try
                    {
                        if (op.Static) KivImage.CallStatic(op.Name, args); else img.Call(op.Name, args);
                    }
                    catch (ArgumentException) { }
                    catch (ObjectDisposedException) { }
                    catch (OutOfMemoryException) { }
                }
        }
        Console.WriteLine("{0} calls", calls);
        return 0;
    }
}
