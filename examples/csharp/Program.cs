// Program.cs - a host in C#: adds a driver package to an image file and saves it.
//
//   service-image IMAGE DIRECTORY INF RESULTS
using System;
using System.IO;

namespace KestroHost
{
    internal static class Program
    {
        private static int Main(string[] arguments)
        {
            if (arguments.Length != 4)
            {
                Console.Error.WriteLine("usage: service-image IMAGE DIRECTORY INF RESULTS");
                return 2;
            }
            string image = Path.GetFullPath(arguments[0]), directory = Path.GetFullPath(arguments[1]);
            string inf = Path.GetFullPath(arguments[2]), results = Path.GetFullPath(arguments[3]);
            string log = Path.Combine(results, "dism.log");

            // The W forms take any path and return 1 for success.
            string mountFile = NewFile(results, "mount.ini");
            if (!Report("mount", Kestro.MountWimImageW(image, directory, log, mountFile), mountFile))
                return 1;
            string driverFile = NewFile(results, "driver.ini");
            bool added = Report("add driver", Kestro.AddDriverW(directory, inf, log, driverFile),
                                driverFile);
            string unmountFile = NewFile(results, "unmount.ini");
            uint flags = added ? Kestro.SaveChanges : Kestro.DropChanges;
            bool unmounted = Report("unmount",
                                    Kestro.UnmountWimImageW(directory, flags, log, unmountFile),
                                    unmountFile);
            return added && unmounted ? 0 : 1;
        }

        // Keys of an earlier run would stay in the file and read like this one's.
        private static string NewFile(string directory, string name)
        {
            string path = Path.Combine(directory, name);
            File.Delete(path);
            return path;
        }

        private static bool Report(string what, byte returned, string resultFile)
        {
            bool succeeded = returned == 1;
            Console.WriteLine("{0}: {1}", what, succeeded ? "OK" : "failed");
            if (succeeded || !File.Exists(resultFile))
                return succeeded;

            // In a W form's file a failed step is ERR=ERR; its ErrorCode keeps its name.
            string section = "";
            foreach (string line in File.ReadLines(resultFile))
            {
                if (line.StartsWith("["))
                    section = line.Trim('[', ']');
                else if (line == "ERR=ERR")
                    Console.WriteLine("  failed step {0}", section);
                else if (section == "Log" && !line.StartsWith("Righe="))
                    Console.WriteLine("  {0}", line.Substring(line.IndexOf('=') + 1));
            }
            return false;
        }
    }
}
