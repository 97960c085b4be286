// Kestro.cs - the functions of Kestro.dll for .NET. kestro.h says what each of them does.
//
// ExactSpelling stands on every declaration: without it a Unicode declaration of MountWimImage finds
// MountWimImageW, whose return value means the opposite.
//
// A ResultFile's narrow path must fit the ANSI code page: ThrowOnUnmappableChar makes one that does not
// an ArgumentException, where it would otherwise name another file.
using System;
using System.Runtime.InteropServices;

namespace KestroHost
{
    internal static class Kestro
    {
        private const string Library = "Kestro.dll";

        /// <summary>How many entries a driver list has: no more, no fewer, none of them null.</summary>
        public const int DriverListLength = 8;

        /// <summary>Flags of UnmountWimImage.</summary>
        public const uint SaveChanges = 0, DropChanges = 1;

        // Images. Narrow forms return 0 for success, W forms 1.

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Ansi,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern byte MountWimImage(
            [MarshalAs(UnmanagedType.LPWStr)] string ImageFilePath,
            [MarshalAs(UnmanagedType.LPWStr)] string MountPath,
            [MarshalAs(UnmanagedType.LPWStr)] string LogFilePath,
            [MarshalAs(UnmanagedType.LPStr)] string resultFile);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern byte MountWimImageW(
            [MarshalAs(UnmanagedType.LPWStr)] string ImageFilePath,
            [MarshalAs(UnmanagedType.LPWStr)] string MountPath,
            [MarshalAs(UnmanagedType.LPWStr)] string LogFilePath,
            [MarshalAs(UnmanagedType.LPWStr)] string resultFile);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Ansi,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern byte UnmountWimImage(
            [MarshalAs(UnmanagedType.LPWStr)] string MountPath,
            uint Flags,
            [MarshalAs(UnmanagedType.LPWStr)] string LogFilePath,
            [MarshalAs(UnmanagedType.LPStr)] string resultFile);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern byte UnmountWimImageW(
            [MarshalAs(UnmanagedType.LPWStr)] string MountPath,
            uint Flags,
            [MarshalAs(UnmanagedType.LPWStr)] string LogFilePath,
            [MarshalAs(UnmanagedType.LPWStr)] string resultFile);

        // Drivers of an image.

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Ansi,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern byte AddDriver(
            [MarshalAs(UnmanagedType.LPWStr)] string ImagePath,
            [MarshalAs(UnmanagedType.LPWStr)] string DriverPath,
            [MarshalAs(UnmanagedType.LPWStr)] string LogFilePath,
            [MarshalAs(UnmanagedType.LPStr)] string resultFile);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern byte AddDriverW(
            [MarshalAs(UnmanagedType.LPWStr)] string ImagePath,
            [MarshalAs(UnmanagedType.LPWStr)] string DriverPath,
            [MarshalAs(UnmanagedType.LPWStr)] string LogFilePath,
            [MarshalAs(UnmanagedType.LPWStr)] string resultFile);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Ansi,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern byte RemoveDriver(
            [MarshalAs(UnmanagedType.LPWStr)] string ImagePath,
            [MarshalAs(UnmanagedType.LPWStr)] string DriverPath,
            [MarshalAs(UnmanagedType.LPWStr)] string LogFilePath,
            [MarshalAs(UnmanagedType.LPStr)] string resultFile);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern byte RemoveDriverW(
            [MarshalAs(UnmanagedType.LPWStr)] string ImagePath,
            [MarshalAs(UnmanagedType.LPWStr)] string DriverPath,
            [MarshalAs(UnmanagedType.LPWStr)] string LogFilePath,
            [MarshalAs(UnmanagedType.LPWStr)] string resultFile);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Ansi,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern byte AddDriverList(
            [MarshalAs(UnmanagedType.LPWStr)] string ImagePath,
            [MarshalAs(UnmanagedType.LPArray, ArraySubType = UnmanagedType.LPWStr, SizeConst = 8)]
            string[] DriverPaths,
            [MarshalAs(UnmanagedType.LPWStr)] string LogFilePath,
            [MarshalAs(UnmanagedType.LPStr)] string resultFile);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern byte AddDriverListW(
            [MarshalAs(UnmanagedType.LPWStr)] string ImagePath,
            [MarshalAs(UnmanagedType.LPArray, ArraySubType = UnmanagedType.LPWStr, SizeConst = 8)]
            string[] DriverPaths,
            [MarshalAs(UnmanagedType.LPWStr)] string LogFilePath,
            [MarshalAs(UnmanagedType.LPWStr)] string resultFile);

        // The inventory. The log file is the second argument of GetDrivers and the third of
        // GetDriverInfo.

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Ansi,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern byte GetDrivers(
            [MarshalAs(UnmanagedType.LPWStr)] string ImagePath,
            [MarshalAs(UnmanagedType.LPWStr)] string LogFilePath,
            [MarshalAs(UnmanagedType.LPStr)] string resultFile);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern byte GetDriversW(
            [MarshalAs(UnmanagedType.LPWStr)] string ImagePath,
            [MarshalAs(UnmanagedType.LPWStr)] string LogFilePath,
            [MarshalAs(UnmanagedType.LPWStr)] string resultFile);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Ansi,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern byte GetDriverInfo(
            [MarshalAs(UnmanagedType.LPWStr)] string ImagePath,
            [MarshalAs(UnmanagedType.LPWStr)] string Driver,
            [MarshalAs(UnmanagedType.LPWStr)] string LogFilePath,
            [MarshalAs(UnmanagedType.LPStr)] string resultFile);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern byte GetDriverInfoW(
            [MarshalAs(UnmanagedType.LPWStr)] string ImagePath,
            [MarshalAs(UnmanagedType.LPWStr)] string Driver,
            [MarshalAs(UnmanagedType.LPWStr)] string LogFilePath,
            [MarshalAs(UnmanagedType.LPWStr)] string resultFile);

        // Disks. Each call may consume one COM initialisation of the thread that makes it: make these
        // calls on a thread of their own. The three flags are bytes, not BOOLs.

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Ansi,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern int CleanDisk(
            [MarshalAs(UnmanagedType.LPWStr)] string diskName,
            byte force,
            byte forceOEM,
            byte fullClean,
            [MarshalAs(UnmanagedType.LPStr)] string resultFile);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int OnlineDisk([MarshalAs(UnmanagedType.LPWStr)] string diskName);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int OfflineDisk([MarshalAs(UnmanagedType.LPWStr)] string diskName);

        // This machine. The reason of a failure is Marshal.GetLastWin32Error(). The openers' handles are
        // the caller's: put them into a SafeFileHandle.

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode, SetLastError = true)]
        public static extern int InfInstall([MarshalAs(UnmanagedType.LPWStr)] string infPath);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode, SetLastError = true)]
        public static extern IntPtr OpenVdFile([MarshalAs(UnmanagedType.LPWStr)] string path);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode, SetLastError = true)]
        public static extern IntPtr OpenPhDrive([MarshalAs(UnmanagedType.LPWStr)] string path);

        // The reporting itself.

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Ansi,
                   BestFitMapping = false, ThrowOnUnmappableChar = true)]
        public static extern void WriteTest([MarshalAs(UnmanagedType.LPStr)] string resultFile);

        [DllImport(Library, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern void WriteTestW([MarshalAs(UnmanagedType.LPWStr)] string resultFile);
    }
}
