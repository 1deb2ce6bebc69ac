// The library in this process: its file, one call at a time, and one connection.
using System;
using System.Collections.Generic;
using System.IO;
using System.Reflection;
using System.Runtime.InteropServices;
using System.Threading;

namespace QzHid
{
  /// <summary>A library that is loaded.</summary>
  internal sealed class Library
  {
    public readonly Functions Api = new Functions();
    /// <summary>The hub whose handle the one connection belongs to.</summary>
    public Hub Connected;
    private const int FailuresOnly = 3;
    private readonly IntPtr file_;
    private readonly string logFolder_;

    public Library(IEnumerable<string> files)
    {
      file_ = Load(files);
      foreach (FieldInfo function in typeof(Functions).GetFields())
      {
        IntPtr address = Native.Find(file_, function.Name);
        if (address == IntPtr.Zero)
        {
          throw new LibraryException("the library has no function " + function.Name,
                                     "use the library of this package's version");
        }
        function.SetValue(Api, Marshal.GetDelegateForFunctionPointer(address, function.FieldType));
      }
      if (!Native.IsWindows) return;
      // There, each new thread starts a log in the library's own folder, unless it has a path.
      logFolder_ = TemporaryFolder.Make();
      Api.QZ_SetLogPath(Path.Combine(logFolder_, "log.txt"));
      StopLog();
    }

    public void StopLog() { Api.QZ_ConfigLog(0, FailuresOnly); }

    public void Unload()
    {
      StopLog();
      Native.Unload(file_);
      if (logFolder_ != null) TemporaryFolder.Remove(logFolder_);
    }

    /// <summary>The files to try, in this order: those that came with the package, then that of the system.</summary>
    public static List<string> Candidates(bool isVirtual)
    {
      string folder = AppDomain.CurrentDomain.BaseDirectory;
      string part = isVirtual ? Path.Combine("virtual", Native.LibraryName) : Native.LibraryName;
      var files = new List<string> {
          Path.Combine(Path.Combine(folder, "runtimes", Native.System, "native"), part), Path.Combine(folder, part) };
      if (!isVirtual && !Native.IsWindows) files.Add(Native.LibraryName);
      return files;
    }

    private static IntPtr Load(IEnumerable<string> files)
    {
      var reasons = new List<string>();
      foreach (string file in files)
      {
        string reason;
        IntPtr library = Native.Load(file, out reason);
        if (library != IntPtr.Zero) return library;
        reasons.Add(reason);
      }
      throw new LibraryException("the library cannot be loaded (" + string.Join("; ", reasons) + ")",
                                 "install libqzhidapi1 or add the folder runtimes to the program, or call UseLibrary(file)");
    }
  }

  /// <summary>Which library is used, and by whom.</summary>
  internal static class Session
  {
    public static bool IsVirtual;
    public static Hub OpenHub;
    private static Library library_;
    private static List<string> files_;
    private static int calls_;

    /// <summary>Does one operation with the library. A second one at the same time, also one of a progress
    /// callback, is rejected.</summary>
    public static T Call<T>(Func<Library, T> work)
    {
      if (Interlocked.CompareExchange(ref calls_, 1, 0) != 0)
      {
        throw new HubInUseException("another call is running in this process",
                                    "wait for it to return: make all calls from one thread, not from a callback");
      }
      try
      {
        if (library_ == null) library_ = new Library(files_ ?? Library.Candidates(IsVirtual));
        return work(library_);
      }
      finally
      {
        Interlocked.Exchange(ref calls_, 0);
      }
    }

    public static void Call(Action<Library> work)
    {
      Call<object>(library => { work(library); return null; });
    }

    /// <summary>What uses the present files again.</summary>
    public static Action UseAgain()
    {
      List<string> files = files_;
      bool isVirtual = IsVirtual;
      return () => Use(files, isVirtual);
    }

    /// <summary>From now on uses other files; null for those that are found.</summary>
    public static void Use(List<string> files, bool isVirtual)
    {
      if (OpenHub != null || Interlocked.CompareExchange(ref calls_, 1, 0) != 0)
      {
        throw new HubInUseException("the library is being used", "close the hub first");
      }
      try
      {
        if (library_ != null) library_.Unload();
        library_ = null;
        files_ = files;
        IsVirtual = isVirtual;
      }
      finally
      {
        Interlocked.Exchange(ref calls_, 0);
      }
    }
  }

  /// <summary>Folders that only this user can read.</summary>
  internal static class TemporaryFolder
  {
    public static string Make()
    {
      string folder = Path.Combine(Path.GetTempPath(), "qzhidapi-" + Guid.NewGuid().ToString("N"));
      if (Native.IsWindows) Directory.CreateDirectory(folder);  // the temporary folder is the user's own there
      else if (mkdir(folder, OnlyOwner) != 0) throw new IOException("no folder can be made in " + Path.GetTempPath());
      return folder;
    }

    public static void Remove(string folder)
    {
      try
      {
        Directory.Delete(folder, true);
      }
      catch (IOException)
      {
        // A file in it is still open.
      }
    }

    private const uint OnlyOwner = 0x1C0;
    [DllImport("libc.so.6")] private static extern int mkdir(string path, uint mode);
  }
}
