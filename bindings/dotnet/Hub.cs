// A hub that is open.
using System;
using System.Diagnostics;
using System.Linq;
using System.Threading;

namespace QzHid
{
  /// <summary>An open hub. A process has one connection, so one hub can be open at a time, and one call can run.</summary>
  public sealed class Hub : IDisposable
  {
    internal const int AtOnce = 128;  // bytes in a request
    private const int GpioLines = 24;
    private const byte FlashBusy = 1;
    private static readonly TimeSpan FlashWait = TimeSpan.FromMinutes(1);
    private bool isOpen_;
    private IntPtr handle_;  // while the connection is this hub's

    private Hub() {}

    /// <summary>Opens the hub that the selector names (port id, name, location, "VID:PID"); without one, the only
    /// hub.</summary>
    public static Hub Open(string selector = null)
    {
      return Session.Call(library =>
      {
        if (Session.OpenHub != null)
        {
          throw new HubInUseException("hub " + Session.OpenHub.Info + " is open, and a process has one connection",
                                      "close that hub first, or use a process for each hub");
        }
        var hub = new Hub { Info = Hubs.Pick(library, selector) };
        hub.Connect(library, hub.Info);
        hub.isOpen_ = true;
        return Session.OpenHub = hub;
      });
    }

    /// <summary>The hub as it was listed when it was opened.</summary>
    public HubInfo Info { get; private set; }

    /// <summary>Closes it.</summary>
    public void Dispose()
    {
      if (!isOpen_) return;
      Session.Call(library =>
      {
        Drop(library);
        isOpen_ = false;
        Session.OpenHub = null;
      });
    }

    /// <summary>Its ids, and the version that it runs.</summary>
    public HubState State()
    {
      return Call(library =>
      {
        Drop(library);
        return Hubs.ReadState(library, Find(library));
      });
    }

    /// <summary>The version of its firmware; null in the loader.</summary>
    public string Version() { return State().Version; }

    /// <summary>Writes an image, checks it and starts it. After a failure waits for the hub to return, and tries again,
    /// from the loader, too. Throws RefusedException, before anything is written, when the image is not for this
    /// hub.</summary>
    public UpdateResult Update(string image, UpdateOptions options = null)
    {
      options = options ?? new UpdateOptions();
      return Write(image, options, new Rules { Force = options.Force, AllowOlder = options.AllowOlder });
    }

    /// <summary>The same for a hub that is in its loader because an update was interrupted.</summary>
    public UpdateResult Recover(string image, RecoverOptions options = null)
    {
      options = options ?? new RecoverOptions();
      return Write(image, new UpdateOptions { Progress = options.Progress, Retries = options.Retries, Wait = options.Wait,
                                              Sha256 = options.Sha256, FlashSize = options.FlashSize },
                   new Rules { Recover = true });
    }

    private UpdateResult Write(string image, UpdateOptions options, Rules rules)
    {
      byte[] data = Image.Read(image, options.Sha256, options.FlashSize);
      var guard = new InterruptGuard();
      UpdateResult result;
      using (guard)
      {
        result = Call(library => Image.WithPrivateCopy(data, copy =>
        {
          Drop(library);
          using (new PortLock(Info.Location, Session.IsVirtual, Info.ToString()))
          {
            return new Writer(library, Info.Location, copy, options).Run(Info.ToString(), rules);
          }
        }));
      }
      if (guard.IsWanted) throw new OperationCanceledException("Ctrl-C was pressed during the update, which is complete");
      return result;
    }

    /// <summary>The level of a line, 0 to 23.</summary>
    public int GpioGet(int line)
    {
      var level = new byte[1];
      uint number = InRange(line, "line", 0, GpioLines - 1);
      Request("reading the line", library => library.Api.QZ_HidGPIOR(handle_, number, level, 1));
      return level[0];
    }

    /// <summary>Drives a line, 0 to 23, low (0) or high (1).</summary>
    public void GpioDrive(int line, int level)
    {
      uint number = InRange(line, "line", 0, GpioLines - 1), value = InRange(level, "level", 0, 1);
      Request("driving the line", library => library.Api.QZ_HidGPIOW(handle_, number, value));
    }

    /// <summary>Sets a line by the hub's own numbering.</summary>
    public void GpioSet(int number, int level)
    {
      uint line = InRange(number, "number", 0, 0xFFFF), value = InRange(level, "level", 0, 1);
      Request("setting the line", library => library.Api.QZ_HidSetHubGPIO(handle_, line, (byte)value) != 0 ? 0u : 1u);
    }

    /// <summary>A target behind the hub, by its address as the hub's I2C master takes it.</summary>
    public I2CTarget I2C(int target, int memoryBytes = 2, int speed = 0)
    {
      return new I2CTarget(this, (byte)InRange(target, "target", 1, 0xFF),
                           (byte)InRange(memoryBytes, "memoryBytes", 0, 5), (byte)InRange(speed, "speed", 0, 2));
    }

    /// <summary>One raw command block: three command bytes, the sum of address and offset, 0 to 54 bytes.</summary>
    public void BlockCommand(byte first, byte second, byte third, uint address, uint offset = 0, byte[] data = null)
    {
      byte[] pool = data ?? new byte[0];
      byte length = (byte)InRange(pool.Length, "the length of the data", 0, 54);
      Request("the block command", library => library.Api.QZ_MST_HidI2CBlock(
          handle_, first, second, third, address, offset, length == 0 ? new byte[1] : pool, length));
    }

    /// <summary>Writes bytes to the flash memory behind the hub, and waits until it is ready.</summary>
    public void FlashWrite(uint address, byte[] data)
    {
      Send(address, data, (library, at, part) =>
           library.Api.QZ_HidI2CBlockWriteFlash(handle_, at, part, (ushort)part.Length));
    }

    /// <summary>Stages bytes for it.</summary>
    public void FlashStage(uint address, byte[] data)
    {
      Send(address, data, (library, at, part) => library.Api.QZ_Stage_Flash(handle_, at, part, (ushort)part.Length));
    }

    /// <summary>Erases all of it, and waits until that is done.</summary>
    public void FlashErase()
    {
      AwaitFlash();
      Request("erasing the flash", library => library.Api.QZ_HidI2CBlockEraseFlash(handle_));
      AwaitFlash();
    }

    /// <summary>Its status byte; 1 means busy.</summary>
    public int FlashStatus()
    {
      var status = new byte[1];
      Request("reading the flash's status", library => library.Api.QZ_HidI2CBlockStatus(handle_, status));
      return status[0];
    }

    private void Send(uint address, byte[] data, Func<Library, uint, byte[], uint> transfer)
    {
      InRange(address, "address", 0, 0x100000000 - data.Length);
      for (int at = 0; at < data.Length; at += AtOnce)
      {
        byte[] part = data.Skip(at).Take(AtOnce).ToArray();
        uint place = address + (uint)at;
        AwaitFlash();
        Request("the transfer after " + at + " bytes", library => transfer(library, place, part));
      }
      AwaitFlash();
    }

    private void AwaitFlash()
    {
      var time = Stopwatch.StartNew();
      while (FlashStatus() == FlashBusy)
      {
        if (time.Elapsed > FlashWait)
        {
          throw new QzHidException("the flash is still busy after a minute", "look at FlashStatus() and try again",
                                   Info.ToString());
        }
        Thread.Sleep(1);
      }
    }

    private T Call<T>(Func<Library, T> work)
    {
      if (!isOpen_) throw new HubClosedException();
      return Session.Call(library =>
      {
        if (!isOpen_) throw new HubClosedException();  // another thread has closed it
        return work(library);
      });
    }

    /// <summary>Sends a request, on a connection that is made anew where an update, a version or a list has ended
    /// it.</summary>
    internal void Request(string what, Func<Library, uint> request)
    {
      Call<object>(library =>
      {
        if (handle_ == IntPtr.Zero || library.Connected != this)
        {
          Drop(library);
          Connect(library, Find(library));
        }
        uint status = request(library);
        if (status == 0) return null;
        if (Hubs.Attached(library).All(hub => hub.Location != Info.Location))
        {
          throw new HubLostException(what + " failed, and the hub is gone", "plug it in again and try again",
                                     Info.ToString());
        }
        throw new RequestFailedException(what + " failed with status " + status + Meaning(status),
                                         "check the address and that the hub runs its firmware", Info.ToString(), status);
      });
    }

    internal IntPtr Handle { get { return handle_; } }

    private void Connect(Library library, HubInfo hub)
    {
      handle_ = library.Api.QZ_OpenHid(hub.Instance);
      if (handle_ == IntPtr.Zero)
      {
        throw new HubLostException("the hub does not answer", QzHidException.PlugInAgain, hub.ToString());
      }
      library.Connected = this;
    }

    private void Drop(Library library)
    {
      if (handle_ != IntPtr.Zero)
      {
        library.Api.QZ_CloseDev(handle_);
        library.Connected = null;
      }
      handle_ = IntPtr.Zero;
    }

    /// <summary>The hub in a fresh list: its instance may have changed.</summary>
    private HubInfo Find(Library library)
    {
      HubInfo found = Hubs.Attached(library).Find(hub => hub.Location == Info.Location && hub.IsOpenable);
      if (found == null) throw new HubLostException("the hub is gone", "plug it in again and try again", Info.ToString());
      return found;
    }

    internal static uint InRange(long value, string name, long least, long most)
    {
      if (value < least || value > most)
      {
        throw new ArgumentOutOfRangeException(name, value, name + " is not " + least + " to " + most);
      }
      return (uint)value;
    }

    private static string Meaning(uint status)
    {
      if (status == Abi.STATUS_REFUSED) return " (rejected by the library)";
      if (status == (Native.IsWindows ? 31 : 32)) return " (the hub or the target refused it)";
      if (status == (Native.IsWindows ? 1167 : 19) || (!Native.IsWindows && status == 71)) return " (the hub left)";
      return status == (Native.IsWindows ? 121 : 110) ? " (no answer in time)" : "";
    }
  }

  /// <summary>A target behind a hub; usable while the hub is open.</summary>
  public sealed class I2CTarget
  {
    // An EEPROM does not acknowledge while it stores a page, which takes it some milliseconds.
    private const int PageTries = 20, BetweenTries = 2;
    private readonly Hub hub_;
    private readonly byte target_, memoryBytes_, speed_;

    internal I2CTarget(Hub hub, byte target, byte memoryBytes, byte speed)
    {
      hub_ = hub;
      target_ = target;
      memoryBytes_ = memoryBytes;
      speed_ = speed;
    }

    /// <summary>Reads from that address of the target's memory on.</summary>
    public byte[] Read(uint memory, int length)
    {
      Hub.InRange(memory, "memory", 0, 0x100000000 - Hub.InRange(length, "length", 0, int.MaxValue));
      var data = new byte[length];
      for (int at = 0; at < length; at += Hub.AtOnce)
      {
        var part = new byte[Math.Min(Hub.AtOnce, length - at)];
        uint place = memory + (uint)at;
        Request("the I2C read", library => library.Api.QZ_HidI2CRead(hub_.Handle, place, part, (ushort)part.Length));
        part.CopyTo(data, at);
      }
      return data;
    }

    /// <summary>Reads up to 192 bytes, with the memory address as up to five bytes, least significant first.</summary>
    public byte[] ReadAt(byte[] address, int length)
    {
      var data = new byte[Hub.InRange(length, "length", 1, 192)];
      ushort size = (ushort)Hub.InRange(address.Length, "the length of the address", 0, 5);
      byte[] where = size == 0 ? new byte[1] : address;  // not null
      Request("the I2C read", library => library.Api.QZ_HidI2CRead2(hub_.Handle, where, size, data, (ushort)length));
      return data;
    }

    /// <summary>Writes to the target's memory, page by page; a page of 8 bytes, the default, is always safe.</summary>
    public void Write(uint memory, byte[] data, int page = 8)
    {
      Hub.InRange(page, "page", 1, Hub.AtOnce);
      Hub.InRange(memory, "memory", 0, 0x100000000 - data.Length);
      for (int at = 0; at < data.Length;)
      {
        uint place = memory + (uint)at;
        byte[] part = data.Skip(at).Take(page - (int)(place % (uint)page)).ToArray();
        bool waits = at > 0;
        Request("the I2C write after " + at + " written bytes", library => WritePage(library, place, part, waits));
        at += part.Length;
      }
    }

    private uint WritePage(Library library, uint memory, byte[] part, bool waits)
    {
      uint status = 0;
      for (int tries = waits ? PageTries : 1; tries > 0; --tries)
      {
        status = library.Api.QZ_HidI2CWrite(hub_.Handle, memory, part, (ushort)part.Length);
        if (status == 0) break;
        Thread.Sleep(BetweenTries);
      }
      return status;
    }

    private void Request(string what, Func<Library, uint> request)
    {
      hub_.Request(what, library =>
      {
        uint status = library.Api.QZ_HidI2CConfig(hub_.Handle, target_, memoryBytes_, speed_);
        return status != 0 ? status : request(library);
      });
    }
  }

  /// <summary>While an object of this class lives, Ctrl-C does not end the program.</summary>
  internal sealed class InterruptGuard : IDisposable
  {
    public InterruptGuard() { Console.CancelKeyPress += Note; }

    /// <summary>Whether it was pressed.</summary>
    public bool IsWanted { get; private set; }

    public void Dispose() { Console.CancelKeyPress -= Note; }

    private void Note(object sender, ConsoleCancelEventArgs press)
    {
      press.Cancel = true;
      IsWanted = true;
    }
  }
}
