// Writing an image to one hub, and trying again when that fails.
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Linq;
using System.Runtime.ExceptionServices;
using System.Threading;

namespace QzHid
{
  public class RecoverOptions
  {
    /// <summary>Called with 0 to 100, on the thread of the call.</summary>
    public Action<int> Progress;
    /// <summary>Tries after one that failed.</summary>
    public int Retries = 2;
    /// <summary>Seconds to wait for a hub that left.</summary>
    public double Wait = 30;
    /// <summary>Refuse an image with another SHA-256, 64 hexadecimal digits.</summary>
    public string Sha256;
    /// <summary>Refuse an image that is longer.</summary>
    public long? FlashSize;
  }

  public sealed class UpdateOptions : RecoverOptions
  {
    /// <summary>Also if the hub runs this version, or is another product of the vendor.</summary>
    public bool Force;
    /// <summary>Also if the hub runs a newer version.</summary>
    public bool AllowOlder;
    /// <summary>Do not start the new firmware.</summary>
    public bool StayInLoader;
  }

  public sealed class UpdateResult
  {
    /// <summary>"updated" or "current".</summary>
    public string Outcome { get; internal set; }
    /// <summary>Versions, or "loader".</summary>
    public string Before { get; internal set; }
    public string Runs { get; internal set; }
    public int Retries { get; internal set; }
  }

  /// <summary>Which hubs may be written.</summary>
  internal struct Rules
  {
    public bool Recover, Force, AllowOlder, TakesLoader;

    /// <summary>Whether the hub is to be written; not when it runs the image. Throws when it must not be.</summary>
    public bool Check(HubInfo hub, HubState state, Image image)
    {
      if (image.Vid != state.Vid)
      {
        throw Refusal(hub, state, string.Format("the image is for vendor {0:X4}, the hub is of vendor {1:X4}", image.Vid,
                                                state.Vid), "use an image for this hub");
      }
      if (state.Number == null)  // a loader may have a product id of its own, so only the vendor counts
      {
        if (Recover || TakesLoader) return true;
        throw new InLoaderException("the hub is in its loader", QzHidException.RecoverIt, hub.ToString(), state.Runs);
      }
      if (image.Pid != state.Pid && !Force)
      {
        throw Refusal(hub, state, string.Format("the image is for product {0:X4}, the hub is product {1:X4}", image.Pid,
                                                state.Pid), "use an image for this hub, or Force to write it anyway");
      }
      if (image.Version == state.Number && !Force) return false;
      if (Recover)
      {
        throw Refusal(hub, state, "the hub runs its firmware " + state.Runs,
                      "nothing needs to be recovered; Update() writes another version");
      }
      if (image.Version < state.Number && !AllowOlder)
      {
        throw Refusal(hub, state, "the hub runs " + state.Runs + ", which is newer than the image's " +
                      HubState.VersionText(image.Version), "use a newer image, or AllowOlder to write it anyway");
      }
      return true;
    }

    private static RefusedException Refusal(HubInfo hub, HubState state, string what, string remedy)
    {
      return new RefusedException(what, remedy, hub.ToString(), state.Runs);
    }
  }

  /// <summary>Writes the image in the file copy to the hub at that location.</summary>
  internal sealed class Writer
  {
    private const int BetweenLists = 100;
    private readonly Library library_;
    private readonly string location_, copy_;
    private readonly UpdateOptions options_;
    private Exception thrown_;  // by the progress callback

    public Writer(Library library, string location, string copy, UpdateOptions options)
    {
      library_ = library;
      location_ = location;
      copy_ = copy;
      options_ = options;
    }

    public UpdateResult Run(string label, Rules rules)
    {
      UpdateResult result;
      try
      {
        result = WriteHub(label, rules);
      }
      catch (QzHidException error) when (thrown_ != null)
      {
        throw error.With(thrown_);
      }
      if (thrown_ != null) ExceptionDispatchInfo.Capture(thrown_).Throw();
      return result;
    }

    private UpdateResult WriteHub(string label, Rules rules)
    {
      HubState state;
      HubInfo hub = Look(label, "", out state);
      Image image = Hubs.WithHandle(library_, hub, handle => Image.Identify(library_, handle, copy_));
      string before = state.Runs, trouble = "";
      if (!rules.Check(hub, state, image)) return new UpdateResult { Outcome = "current", Before = before, Runs = before };
      for (int retries = 0; retries <= options_.Retries; ++retries)
      {
        try
        {
          HubState after = Hubs.WithHandle(library_, hub, handle => Write(handle, image));
          return new UpdateResult { Outcome = "updated", Before = before, Runs = after.Runs, Retries = retries };
        }
        catch (QzHidException error)
        {
          trouble = error.What;
        }
        hub = Look(hub.ToString(), trouble, out state);
        CheckReturn(trouble, hub, state, image, rules);
        // The hub may have come back only after the library had stopped waiting for it.
        if (state.Number == image.Version && before != state.Runs)
        {
          return new UpdateResult { Outcome = "updated", Before = before, Runs = state.Runs, Retries = retries };
        }
      }
      if (state.Number == null)
      {
        throw new InLoaderException(trouble + ", and the hub is in its loader", QzHidException.RecoverIt, hub.ToString(),
                                    state.Runs);
      }
      throw new UpdateFailedException(trouble + ", and the hub runs " + state.Runs,
                                      "try again; with LogTo(file) the log says why it failed", hub.ToString(), state.Runs);
    }

    private HubState Write(IntPtr handle, Image image)
    {
      library_.Api.QZ_DllPassPara(options_.StayInLoader ? 1u : 0u);
      Abi.Progress progress = Report;
      bool isWritten = library_.Api.QZ_UpdateDev(handle, copy_, progress) != 0;
      GC.KeepAlive(progress);
      if (!isWritten) throw new UpdateFailedException("the update failed");
      var after = new HubState { Number = Hubs.RunningVersion(library_, handle) };
      if (options_.StayInLoader || after.Number == image.Version) return after;
      throw new UpdateFailedException("the image is written, but not started");
    }

    /// <summary>Nothing that the callback throws may end the update: the hub would be left without firmware.</summary>
    private void Report(int percent)
    {
      if (options_.Progress == null || thrown_ != null) return;
      try
      {
        options_.Progress(percent);
      }
      catch (Exception error)
      {
        thrown_ = error;
      }
    }

    /// <summary>Waits for the hub, also one that leaves while it is asked.</summary>
    private HubInfo Look(string label, string trouble, out HubState state)
    {
      string before = trouble.Length == 0 ? "" : trouble + ", and ";
      string remedy = trouble.Length == 0 ? QzHidException.PlugInAgain : QzHidException.FindHub;
      for (int looks = 0; looks < 2; ++looks)
      {
        HubInfo hub = Await();
        if (hub == null)
        {
          throw new HubLostException(before + (trouble.Length == 0 ? "the hub is gone" : "the hub has left the bus"), remedy,
                                     label);
        }
        if (!hub.IsOpenable)
        {
          PermissionDeniedException denied = Hubs.NotOpenable(hub);
          if (trouble.Length == 0) throw denied;
          throw new HubLostException(before + denied.What, denied.Remedy, denied.Hub);
        }
        try
        {
          state = Hubs.ReadState(library_, hub);
          return hub;
        }
        catch (HubLostException)
        {
          // It has left again.
        }
      }
      throw new HubLostException(before + "the hub does not answer", remedy, label);
    }

    /// <summary>The hub; null when it does not come back.</summary>
    private HubInfo Await()
    {
      var time = Stopwatch.StartNew();
      for (;;)
      {
        List<HubInfo> found = Hubs.Attached(library_).Where(hub => hub.Location == location_).ToList();
        List<HubInfo> usable = found.Where(hub => hub.IsOpenable).ToList();
        if (usable.Count == 1) return usable[0];
        if (time.Elapsed.TotalSeconds >= options_.Wait) return usable.Count == 0 ? found.FirstOrDefault() : null;
        Thread.Sleep(BetweenLists);
      }
    }

    /// <summary>Throws HubLostException when the hub that is at the port after a try cannot be the one before.</summary>
    private static void CheckReturn(string trouble, HubInfo hub, HubState state, Image image, Rules rules)
    {
      try
      {
        new Rules { Force = rules.Force, AllowOlder = true, TakesLoader = true }.Check(hub, state, image);
      }
      catch (RefusedException)
      {
        throw new HubLostException(trouble + ", and another hub has taken its place", QzHidException.FindHub, hub.ToString());
      }
    }
  }
}
