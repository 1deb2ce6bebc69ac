// Finds and services USB hub controllers through their vendor HID interface.
using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using System.Text.RegularExpressions;

namespace QzHid
{
  public static class QzHidApi
  {
    /// <summary>All hubs of the family, each with what it runs. Those that cannot be opened come last.</summary>
    public static IList<HubInfo> ListHubs()
    {
      return Session.Call(library => Hubs.Attached(library).Select(hub => Hubs.Summarise(library, hub)).ToList());
    }

    /// <summary>The HID devices with exactly these ids, of the family or not. Opens no device.</summary>
    public static IList<HubInfo> ListDevices(int vid, int pid)
    {
      return Session.Call(library => Hubs.Devices(library, vid, pid));
    }

    /// <summary>From now on uses that file as the library; null for the one of the package or the system.</summary>
    public static void UseLibrary(string file)
    {
      bool isVirtual = file != null && Path.GetFileName(Path.GetDirectoryName(file)) == "virtual";
      Session.Use(file == null ? null : new List<string> { file }, isVirtual);
    }

    /// <summary>Logs to that file, which is emptied, lines of at least that level: 0 everything, 3 failures only. The
    /// first file stays the log for the life of the process.</summary>
    public static void LogTo(string file, int level = 0)
    {
      Session.Call(library =>
      {
        string path = Path.GetFullPath(file);
        if (library.Api.QZ_SetLogPath(path) != 1)
        {
          throw new QzHidException("the log " + path + " cannot be written",
                                   "name a file in a folder that you have permission to write");
        }
        library.Api.QZ_ConfigLog(1, level);
      });
    }

    /// <summary>Logs nothing more.</summary>
    public static void StopLog() { Session.Call(library => library.StopLog()); }

    /// <summary>From now on, a crash of the process writes a record to its current directory.</summary>
    public static void RecordCrashes() { Session.Call(library => { library.Api.QZ_GenerateDumplog(); }); }

    /// <summary>Until the returned object is disposed of, the hubs are those of the scenario: its JSON text, or the path
    /// of such a file. Relative paths in a text start in a temporary folder.</summary>
    public static Machine Virtual(string scenario, string library = null) { return new Machine(scenario, library); }
  }

  /// <summary>The simulated computer that virtual hubs are attached to.</summary>
  public sealed class Machine : IDisposable
  {
    private const string Variable = "QZ_VIRTUAL_HUB";
    private readonly string folder_ = TemporaryFolder.Make();
    private readonly string before_ = Environment.GetEnvironmentVariable(Variable);
    private readonly Action useBefore_ = Session.UseAgain();
    private readonly string control_;

    internal Machine(string scenario, string library)
    {
      bool isText = scenario.TrimStart().StartsWith("{");
      Scenario = isText ? Path.Combine(folder_, "scenario.json") : Path.GetFullPath(scenario);
      if (isText) File.WriteAllText(Scenario, scenario);
      Match control = Regex.Match(File.ReadAllText(Scenario), "\"control\"\\s*:\\s*\"([^\"]*)\"");
      if (control.Success) control_ = Path.Combine(Path.GetDirectoryName(Scenario), control.Groups[1].Value);
      Session.Use(library == null ? null : new List<string> { library }, true);
      Native.SetVariable(Variable, Scenario);
    }

    /// <summary>The scenario's file.</summary>
    public string Scenario { get; private set; }

    public void Plug(string name, string port = null) { Add("plug " + name + (port == null ? "" : " " + port)); }

    public void Unplug(string name) { Add("unplug " + name); }

    public void PowerLoss(string name, int milliseconds = 500) { Add("power-loss " + name + " " + milliseconds); }

    public void Dispose()
    {
      if (Session.OpenHub != null) Session.OpenHub.Dispose();
      useBefore_();  // flash contents are saved now
      Native.SetVariable(Variable, before_);
      TemporaryFolder.Remove(folder_);
    }

    private void Add(string line)
    {
      if (control_ == null) throw new WrongUseException("the scenario names no control file", "add the key control to it");
      File.AppendAllText(control_, line + "\n");
    }
  }
}
