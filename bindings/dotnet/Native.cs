// What is needed from the operating system besides the class library.
using System;
using System.IO;
using System.Runtime.InteropServices;

namespace QzHid
{
  internal static class Native
  {
    public static readonly bool IsWindows = Path.DirectorySeparatorChar == '\\';
    public static readonly string LibraryName = IsWindows ? "QzHidAPI.dll" : "libQzHidAPI.so.1";

    /// <summary>As in the folder "runtimes" of a package.</summary>
    public static string System
    {
      get
      {
        bool isArm = RuntimeInformation.ProcessArchitecture == Architecture.Arm64;
        return (IsWindows ? "win-" : "linux-") + (isArm ? "arm64" : "x64");
      }
    }

    /// <summary>Null with a reason when the file cannot be loaded.</summary>
    public static IntPtr Load(string file, out string reason)
    {
      const uint SearchDllLoadDir = 0x100, SearchDefaultDirs = 0x1000;
      const int ResolveNow = 2;
      IntPtr library;
      if (IsWindows)
      {
        uint folders = SearchDefaultDirs | (Path.IsPathRooted(file) ? SearchDllLoadDir : 0);
        library = Windows.LoadLibraryExW(file, IntPtr.Zero, folders);
        reason = file + ": system error " + Marshal.GetLastWin32Error();
      }
      else
      {
        library = Linux.dlopen(file, ResolveNow);
        reason = library == IntPtr.Zero ? Marshal.PtrToStringAnsi(Linux.dlerror()) : "";
      }
      return library;
    }

    public static void Unload(IntPtr library)
    {
      if (IsWindows) Windows.FreeLibrary(library);
      else Linux.dlclose(library);
    }

    public static IntPtr Find(IntPtr library, string name)
    {
      return IsWindows ? Windows.GetProcAddress(library, name) : Linux.dlsym(library, name);
    }

    /// <summary>Also for native code, which does not see what the runtime sets on Linux.</summary>
    public static void SetVariable(string name, string value)
    {
      Environment.SetEnvironmentVariable(name, value);
      if (IsWindows) return;
      if (value == null) Linux.unsetenv(name);
      else Linux.setenv(name, value, 1);
    }

    private static class Windows
    {
      [DllImport("kernel32.dll", SetLastError = true, CharSet = CharSet.Unicode)]
      public static extern IntPtr LoadLibraryExW(string file, IntPtr reserved, uint flags);
      [DllImport("kernel32.dll")] public static extern bool FreeLibrary(IntPtr library);
      [DllImport("kernel32.dll", CharSet = CharSet.Ansi)]
      public static extern IntPtr GetProcAddress(IntPtr library, string name);
    }

    private static class Linux
    {
      [DllImport("libdl.so.2")] public static extern IntPtr dlopen(string file, int flags);
      [DllImport("libdl.so.2")] public static extern IntPtr dlerror();
      [DllImport("libdl.so.2")] public static extern IntPtr dlsym(IntPtr library, string name);
      [DllImport("libdl.so.2")] public static extern int dlclose(IntPtr library);
      [DllImport("libc.so.6")] public static extern int setenv(string name, string value, int replaces);
      [DllImport("libc.so.6")] public static extern int unsetenv(string name);
    }
  }
}
