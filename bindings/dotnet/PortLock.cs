// One process at a time writes the hub at a port, of this package or qzhid, of any user.
using System;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Runtime.InteropServices;
using System.Security.Cryptography;
using System.Text;
using System.Threading;

namespace QzHid
{
  /// <summary>Held while the object lives. The system releases it when the process dies.</summary>
  internal sealed class PortLock : IDisposable
  {
    private readonly Mutex mutex_;
    private readonly int socket_ = -1;

    public PortLock(string location, bool isVirtual, string hub)
    {
      // The system limits the length and the letters of names. qzhid uses the same ones.
      byte[] digest;
      using (var sha256 = SHA256.Create()) digest = sha256.ComputeHash(Encoding.UTF8.GetBytes(Whole(location, isVirtual)));
      string name = "qzhid-" + string.Concat(digest.Select(one => one.ToString("x2")));
      if (Native.IsWindows ? Hold("Global\\" + name, out mutex_) : Hold(name, out socket_)) return;
      throw new RefusedException("another process is writing the hub", "wait until that has ended and try again", hub);
    }

    public void Dispose()
    {
      if (mutex_ != null)
      {
        mutex_.ReleaseMutex();
        mutex_.Dispose();
      }
      if (socket_ >= 0) close(socket_);
    }

    private static string Whole(string location, bool isVirtual)
    {
      if (!isVirtual) return location;
      // Virtual hubs are different ones in each scenario, and without one in each process.
      string scenario = Environment.GetEnvironmentVariable("QZ_VIRTUAL_HUB");
      if (string.IsNullOrEmpty(scenario)) scenario = Process.GetCurrentProcess().Id.ToString();
      return Path.Combine(Directory.GetCurrentDirectory(), scenario) + "\n" + location;
    }

    private static bool Hold(string name, out Mutex mutex)
    {
      mutex = null;
      try
      {
        var own = new Mutex(false, name);
        bool isHeld;
        try
        {
          isHeld = own.WaitOne(0);
        }
        catch (AbandonedMutexException)
        {
          isHeld = true;  // its holder has died
        }
        if (isHeld) mutex = own;
        else own.Dispose();
        return isHeld;
      }
      catch (UnauthorizedAccessException)
      {
        return false;  // another user's
      }
    }

    // A name without a file: all users share these names, and nothing of them is left.
    private static bool Hold(string name, out int socket)
    {
      const int AfUnix = 1, Datagram = 2, CloseOnExec = 0x80000, AddressInUse = 98;
      socket = socket_of(AfUnix, Datagram | CloseOnExec, 0);
      byte[] address = new byte[] { AfUnix, 0, 0 }.Concat(Encoding.ASCII.GetBytes(name)).ToArray();
      // A system without such sockets has no lock; that is no reason not to write.
      if (bind(socket, address, (uint)address.Length) == 0 || Marshal.GetLastWin32Error() != AddressInUse) return true;
      close(socket);
      socket = -1;
      return false;
    }

    [DllImport("libc.so.6", EntryPoint = "socket")]
    private static extern int socket_of(int domain, int type, int protocol);
    [DllImport("libc.so.6", SetLastError = true)]
    private static extern int bind(int socket, byte[] address, uint length);
    [DllImport("libc.so.6")] private static extern int close(int descriptor);
  }
}
