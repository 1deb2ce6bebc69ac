// Why a call ended without doing its work.
using System;

namespace QzHid
{
  /// <summary>What failed, on which hub, what that hub runs now, and what to do about it.</summary>
  public class QzHidException : Exception
  {
    public QzHidException(string what, string remedy = "", string hub = "", string runs = null,
                          Exception cause = null)
        : base((hub.Length == 0 ? "" : "hub " + hub + ": ") + what + (remedy.Length == 0 ? "" : "; " + remedy), cause)
    {
      What = what;
      Remedy = remedy;
      Hub = hub;
      Runs = runs;
    }

    public string What { get; private set; }
    /// <summary>What to do next.</summary>
    public string Remedy { get; private set; }
    /// <summary>As messages name it, "1-3.1 (bay 3)"; empty where none is concerned.</summary>
    public string Hub { get; private set; }
    /// <summary>"2.10" or "loader"; null when that is not known.</summary>
    public string Runs { get; private set; }
    /// <summary>What became of the hub in an update: "refused", "loader", "lost" or "failed".</summary>
    public virtual string Outcome { get { return "failed"; } }

    // What to do about it, where several places say so.
    internal const string PlugInAgain = "unplug it, plug it in again and try again";
    internal const string FindHub = "unplug it, plug it in again, and call Recover() if it is in its loader";
    internal const string RecoverIt = "call Recover() with an image for it";

    /// <summary>The same with what caused it.</summary>
    internal virtual QzHidException With(Exception cause)
    {
      return cause == null ? this : (QzHidException)Activator.CreateInstance(GetType(), What, Remedy, Hub, Runs, cause);
    }
  }

  /// <summary>All tries failed, and the hub runs a firmware; usually the one from before.</summary>
  public class UpdateFailedException : QzHidException
  {
    public UpdateFailedException(string what, string remedy = "", string hub = "", string runs = null,
                                 Exception cause = null) : base(what, remedy, hub, runs, cause) {}
  }

  /// <summary>This user has no permission to open the hub, or another program has it open for itself.</summary>
  public class PermissionDeniedException : QzHidException
  {
    public PermissionDeniedException(string what, string remedy = "", string hub = "", string runs = null,
                                     Exception cause = null) : base(what, remedy, hub, runs, cause) {}
    public override string Outcome { get { return "refused"; } }
  }

  /// <summary>The image is not for this hub, or is not an image; nothing was written.</summary>
  public class RefusedException : QzHidException
  {
    public RefusedException(string what, string remedy = "", string hub = "", string runs = null,
                            Exception cause = null) : base(what, remedy, hub, runs, cause) {}
    public override string Outcome { get { return "refused"; } }
  }

  /// <summary>The hub left the bus, or does not answer.</summary>
  public class HubLostException : QzHidException
  {
    public HubLostException(string what, string remedy = "", string hub = "", string runs = null,
                            Exception cause = null) : base(what, remedy, hub, runs, cause) {}
    public override string Outcome { get { return "lost"; } }
  }

  /// <summary>The hub is in its loader and waits for an image.</summary>
  public class InLoaderException : QzHidException
  {
    public InLoaderException(string what, string remedy = "", string hub = "", string runs = null,
                             Exception cause = null) : base(what, remedy, hub, runs, cause) {}
    public override string Outcome { get { return "loader"; } }
  }

  /// <summary>The hub, or what is behind it, refused a request.</summary>
  public class RequestFailedException : QzHidException
  {
    public RequestFailedException(string what, string remedy, string hub, uint status)
        : base(what, remedy, hub) { Status = status; }
    /// <summary>The library's result.</summary>
    public uint Status { get; private set; }
  }

  /// <summary>No hub is attached, or none that is meant.</summary>
  public class NoSuchHubException : QzHidException
  {
    public NoSuchHubException(string what, string remedy) : base(what, remedy) {}
  }

  /// <summary>The library cannot be loaded, or is not the one that this package is for.</summary>
  public class LibraryException : QzHidException
  {
    public LibraryException(string what, string remedy) : base(what, remedy) {}
  }

  /// <summary>The program did what it must not do.</summary>
  public class WrongUseException : QzHidException
  {
    public WrongUseException(string what, string remedy) : base(what, remedy) {}
  }

  /// <summary>The hub is not open, or not open any more.</summary>
  public class HubClosedException : WrongUseException
  {
    public HubClosedException() : base("the hub is not open", "open it again") {}
  }

  /// <summary>This process already uses the library: another hub is open, or another call is running.</summary>
  public class HubInUseException : WrongUseException
  {
    public HubInUseException(string what, string remedy) : base(what, remedy) {}
  }
}
