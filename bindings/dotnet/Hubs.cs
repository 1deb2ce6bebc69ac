// The hubs that are attached.
using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using System.Runtime.InteropServices;
using System.Text.RegularExpressions;

namespace QzHid
{
  /// <summary>A hub of a list.</summary>
  public sealed class HubInfo
  {
    /// <summary>"1-3.1": where it is plugged in; stays the same when the hub resets.</summary>
    public string PortId { get; internal set; }
    /// <summary>What the user calls the port; empty without a name.</summary>
    public string Name { get; internal set; }
    public int Vid { get; internal set; }
    public int Pid { get; internal set; }
    /// <summary>The whole path to the port, of which the port id is made.</summary>
    public string Location { get { return Locations.Count == 0 ? "" : Locations[0]; } }
    public IList<string> Locations { get; internal set; }
    public IList<string> HardwareIds { get; internal set; }
    /// <summary>Good until this process lists again.</summary>
    public uint Instance { get; internal set; }
    public uint Level { get; internal set; }
    public uint Port { get; internal set; }
    /// <summary>False: this user has no permission, or another program has it open for itself.</summary>
    public bool IsOpenable { get; internal set; }
    /// <summary>"firmware", "loader", "no permission" or "silent"; "unknown" when it was not asked.</summary>
    public string State { get; internal set; }
    /// <summary>Of the firmware, "2.10", if it runs that.</summary>
    public string Version { get; internal set; }

    /// <summary>As messages name it: "1-3.1 (bay 3)".</summary>
    public override string ToString() { return PortId + (Name.Length == 0 ? "" : " (" + Name + ")"); }

    internal PortId Id { get { return new PortId(Location); } }
  }

  /// <summary>What a hub says about itself. In the loader the ids may differ from the firmware's.</summary>
  public sealed class HubState
  {
    public int Vid { get; internal set; }
    public int Pid { get; internal set; }
    /// <summary>Null in the loader.</summary>
    public string Version { get { return Number.HasValue ? VersionText(Number.Value) : null; } }
    /// <summary>The version, or "loader".</summary>
    public string Runs { get { return Version ?? "loader"; } }

    internal ushort? Number;

    /// <summary>0x0210 is "2.10".</summary>
    internal static string VersionText(ushort version)
    {
      return string.Format("{0:x}.{1:x2}", version >> 8, version & 0xFF);
    }
  }

  internal static class Hubs
  {
    private const uint FamilyVendor = 0x2E7C;
    private delegate byte List(out IntPtr records, out uint count);

    /// <summary>All hubs of the family; none is asked what it runs. Releases the connection.</summary>
    public static List<HubInfo> Attached(Library library)
    {
      // This list opens no device, so it also holds hubs that this user has no permission to open. It comes
      // first, because instances are good for the last list.
      List<HubInfo> closed = DevicesOf(library, FamilyVendor, null);
      foreach (HubInfo hub in closed) hub.IsOpenable = false;
      var hubs = new List<HubInfo>();
      // Of a device whose interface has several collections, one is enough.
      foreach (HubInfo hub in Records(library, library.Api.QZ_ListAllHidDev.Invoke))
      {
        if (hub.Location.Length == 0 || hubs.All(other => other.Location != hub.Location)) hubs.Add(hub);
      }
      hubs.AddRange(closed.Where(hub => !hubs.Any(other => AreOnOnePort(hub, other))).ToList());
      return GiveNames(hubs);
    }

    public static List<HubInfo> Devices(Library library, int vid, int pid)
    {
      return GiveNames(DevicesOf(library, (uint)vid, (uint)pid));
    }

    /// <summary>The hub that the selector names; without one, the only hub that is attached.</summary>
    public static HubInfo Pick(Library library, string selector)
    {
      List<HubInfo> hubs = Attached(library);
      if (hubs.Count == 0) throw new NoSuchHubException("no hub is attached", "plug one in");
      List<HubInfo> matching = hubs.Where(hub => selector == null || IsNamed(hub, selector)).ToList();
      if (matching.Count == 0)
      {
        throw new NoSuchHubException("no hub matches '" + selector + "'", "attached are: " + string.Join(", ", hubs));
      }
      if (matching.Count > 1)
      {
        throw new WrongUseException("several hubs " + (selector == null ? "are attached" : "match '" + selector + "'"),
                                    "choose one of: " + string.Join(", ", matching));
      }
      if (!matching[0].IsOpenable) throw NotOpenable(matching[0]);
      return matching[0];
    }

    public static PermissionDeniedException NotOpenable(HubInfo hub)
    {
      return new PermissionDeniedException(
          "the hub cannot be opened",
          "get permission for it (on Linux: the udev rule) or end the program that has it open", hub.ToString());
    }

    /// <summary>Asks a hub of the last list. Releases the connection.</summary>
    public static HubState ReadState(Library library, HubInfo hub)
    {
      // A hub that answers and has no version is in its loader. But it may have left between the two answers,
      // so that counts only when it is so again.
      var state = new HubState();
      for (int looks = 0; looks < 2 && state.Number == null; ++looks)
      {
        uint vid, pid;
        if (library.Api.QZ_GetHubVIDPIDFromHidDevice(hub.Instance, out vid, out pid) == 0)
        {
          throw new HubLostException("the hub does not answer", QzHidException.PlugInAgain, hub.ToString());
        }
        ushort? number = WithHandle(library, hub, handle => RunningVersion(library, handle));
        state = new HubState { Vid = (int)vid, Pid = (int)pid, Number = number };
      }
      return state;
    }

    /// <summary>Null in the loader.</summary>
    public static ushort? RunningVersion(Library library, IntPtr handle)
    {
      ushort version;
      return library.Api.QZ_ReadDevVersion(handle, out version) != 0 ? version : (ushort?)null;
    }

    /// <summary>Does the work on a handle of a hub of the last list.</summary>
    public static T WithHandle<T>(Library library, HubInfo hub, Func<IntPtr, T> work)
    {
      library.Connected = null;
      IntPtr handle = library.Api.QZ_OpenHid(hub.Instance);
      if (handle == IntPtr.Zero)
      {
        throw new HubLostException("the hub does not answer", QzHidException.PlugInAgain, hub.ToString());
      }
      try
      {
        return work(handle);
      }
      finally
      {
        library.Api.QZ_CloseDev(handle);
      }
    }

    /// <summary>Fills in what the hub runs.</summary>
    public static HubInfo Summarise(Library library, HubInfo hub)
    {
      if (!hub.IsOpenable)
      {
        hub.State = "no permission";
        return hub;
      }
      try
      {
        hub.Version = ReadState(library, hub).Version;
        hub.State = hub.Version == null ? "loader" : "firmware";
      }
      catch (QzHidException)
      {
        hub.State = "silent";
      }
      return hub;
    }

    /// <summary>Whether the selector names the hub: its port id, its name, its location or whole steps at the end
    /// of it, "VID:PID", "vid=VID" or "pid=PID". Letter case counts in names only.</summary>
    private static bool IsNamed(HubInfo hub, string selector)
    {
      if (selector.ToLowerInvariant() == "instance:" + hub.Instance) return true;  // of a device without a port
      Match filter = Regex.Match(selector, "^(?:vid=([0-9a-f]{1,4})|pid=([0-9a-f]{1,4})|([0-9a-f]{1,4}):([0-9a-f]{1,4}))$",
                                 RegexOptions.IgnoreCase);
      if (filter.Success)
      {
        return IsId(hub.Vid, filter.Groups[1].Value + filter.Groups[3].Value) &&
               IsId(hub.Pid, filter.Groups[2].Value + filter.Groups[4].Value);
      }
      return selector.Length > 0 &&
             (selector == hub.Name || hub.Id.Is(selector) || PortId.IsLocation(hub.Location, selector));
    }

    /// <summary>An empty text is any id.</summary>
    private static bool IsId(int id, string text) { return text.Length == 0 || id == Convert.ToInt32(text, 16); }

    private static bool AreOnOnePort(HubInfo hub, HubInfo other)
    {
      return hub.Instance == other.Instance || (hub.Id.Port.Length > 0 && hub.Id.Device == other.Id.Device);
    }

    private static List<HubInfo> DevicesOf(Library library, uint vid, uint? pid)
    {
      // The library looks for both ids anywhere in the device's id, so the vendor's is found twice.
      List list = (out IntPtr records, out uint count) =>
          library.Api.QZ_ListAllHidDevByVIDPID(vid, pid ?? vid, out records, out count);
      return Records(library, list).Where(device => device.Vid == vid && (pid == null || device.Pid == pid)).ToList();
    }

    private static List<HubInfo> Records(Library library, List list)
    {
      library.Connected = null;
      IntPtr records;
      uint count;
      if (list(out records, out count) == 0) return new List<HubInfo>();
      try
      {
        return Enumerable.Range(0, (int)count).Select(at => Info(records + at * Abi.RecordSize)).ToList();
      }
      finally
      {
        library.Api.QZ_FreeDevList(records);
      }
    }

    private static HubInfo Info(IntPtr record)
    {
      return new HubInfo {
        PortId = "", Name = "", State = "unknown", IsOpenable = true,
        Vid = ReadId(record, Abi.VIDAt, Abi.VIDUnits), Pid = ReadId(record, Abi.PIDAt, Abi.PIDUnits),
        Locations = Texts(record, Abi.LocationPathAt, Abi.LocationPathUnits),
        HardwareIds = Texts(record, Abi.HwIDAt, Abi.HwIDUnits),
        Instance = (uint)Marshal.ReadInt32(record, Abi.dwInstAt), Level = (uint)Marshal.ReadInt32(record, Abi.LevelAt),
        Port = (uint)Marshal.ReadInt32(record, Abi.PortAt) };
    }

    /// <summary>Texts one after another, each zero-terminated, until an empty one.</summary>
    private static List<string> Texts(IntPtr record, int offset, int units)
    {
      return Marshal.PtrToStringUni(record + offset, units).Split('\0').TakeWhile(text => text.Length > 0).ToList();
    }

    private static int ReadId(IntPtr record, int offset, int units)
    {
      int id;
      string text = Texts(record, offset, units).FirstOrDefault() ?? "";
      return int.TryParse(text, System.Globalization.NumberStyles.HexNumber, null, out id) ? id : 0;
    }

    private static List<HubInfo> GiveNames(List<HubInfo> hubs)
    {
      List<KeyValuePair<string, string>> names = hubs.Count > 0 ? ReadPortNames() : null;
      bool isOnSeveral = hubs.Select(hub => hub.Id.Controller).Distinct().Count() > 1;
      foreach (HubInfo hub in hubs)
      {
        hub.PortId = isOnSeveral ? hub.Id.Whole : hub.Id.Port;
        if (hub.PortId.Length == 0) hub.PortId = "instance:" + hub.Instance;
        // One port of this number may have a name of its own, and those of other controllers another.
        hub.Name = names.Where(name => hub.Id.Is(name.Value)).OrderBy(name => !name.Value.Contains("/"))
                        .Select(name => name.Key).FirstOrDefault() ?? "";
      }
      return hubs;
    }

    /// <summary>The names that a user has given to ports: lines such as "bay 3 = 1-3.1".</summary>
    private static List<KeyValuePair<string, string>> ReadPortNames()
    {
      var names = new List<KeyValuePair<string, string>>();
      string folder = Environment.GetFolderPath(Environment.SpecialFolder.ApplicationData);
      string file = Path.Combine(folder, "qzhid", "ports.conf");
      if (Directory.Exists(file)) throw Unusable(file, "it is not a regular file");
      if (folder.Length == 0 || !File.Exists(file)) return names;
      int number = 0;
      foreach (string line in File.ReadAllLines(file))
      {
        ++number;
        string[] parts = line.Split('#')[0].Split(new[] { '=' }, 2).Select(part => part.Trim()).ToArray();
        if (parts.Length == 1 && parts[0].Length == 0) continue;
        string reason = WhyNotUsable(names, parts[0], parts.Length < 2 ? "" : parts[1]);
        if (reason != null) throw Unusable(file, "line " + number + " " + reason);
        names.Add(new KeyValuePair<string, string>(parts[0], parts[1]));
      }
      return names;
    }

    private static readonly Regex PortIdForm = new Regex(@"^(.+/)?[0-9]+-[0-9]+(\.[0-9]+)*(:[0-9]+)?$");
    // What a selector means that is no name.
    private static readonly Regex OtherSelector =
        new Regex(PortIdForm + @"|^(0x)?[0-9a-f]{1,4}:(0x)?[0-9a-f]{1,4}$|^instance:|^usb.*\)$", RegexOptions.IgnoreCase);

    private static string WhyNotUsable(List<KeyValuePair<string, string>> names, string name, string port)
    {
      if (name.Length == 0 || port.Length == 0) return "is not NAME = PORT";
      if (name.Any(char.IsControl)) return "has a name with a control character";
      if (OtherSelector.IsMatch(name)) return "has the name '" + name + "', which already means something else";
      if (!PortIdForm.IsMatch(port)) return "has '" + port + "', which is not a port id";
      if (names.Any(other => other.Key == name)) return "names '" + name + "' again";
      bool isNamed = names.Any(other => other.Value.Equals(port, StringComparison.OrdinalIgnoreCase));
      return isNamed ? "gives port " + port + " another name" : null;
    }

    private static QzHidException Unusable(string file, string why)
    {
      return new QzHidException("the port names in " + file + " are not usable: " + why,
                                "correct the file; its lines look like this: bay 3 = 1-3.1");
    }
  }
}
