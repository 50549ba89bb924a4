// A console host of kivlib through the .NET binding: draws a gradient, shrinks, sharpens and
// quantizes it, shows a refusal and a stopped operation and writes the result as a BMP file.
//   mcs -target:library -out:Kiv.dll bindings/dotnet/*.cs && mcs -r:Kiv.dll -out:Example.exe bindings/dotnet/example/Example.cs
//   mono Example.exe [OUT.bmp]      (Kiv.dll.config beside Kiv.dll; libkivlib.so on LD_LIBRARY_PATH)
using System;
using Kiv;

static class Example
{
    static int Main(string[] args)
    {
        string path = args.Length > 0 ? args[0] : "example.bmp";
        Console.WriteLine("kivlib " + KivImage.Version);
        using (var img = new KivImage(320, 200))
        {
            img.Gradientfill(new[] { new GradColor(0xFF0000, 0), new GradColor(0x00A0FF, 1000) }, 4, 255, 0);
            img.Zoom(160, 100, 11);                      // Lanczos 3
            img.UnsharpMask(1.0, 80, 2);
            img.Quantize(1, 16);                         // Floyd-Steinberg to 16 colours
            Console.WriteLine("{0} x {1}, {2} bits, {3} colours", img.Width, img.Height, img.Bits, img.Colors);
            try
            {
                img.Zoom(10, 10, 99);
            }
            catch (ArgumentException e)
            {
                Console.WriteLine("refused: " + e.Message);
            }
            img.Progress = (done, total) => true;        // stop the next long operation at once
            try
            {
                img.BlurGaussRgba(3.0, 3.0, 2);
            }
            catch (OperationCanceledException e)
            {
                Console.WriteLine("stopped: " + e.Message);
            }
            img.Progress = null;
            img.Save(path);
        }
        Console.WriteLine("wrote " + path);
        using (var back = KivImage.Open(path))
            Console.WriteLine("read back: {0} x {1}, {2} bits", back.Width, back.Height, back.Bits);
        return 0;
    }
}
