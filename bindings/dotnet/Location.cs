// Where a hub is plugged in: location paths, such as "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)", and the short
// port ids that are made of them.
using System;
using System.Linq;
using System.Text.RegularExpressions;

namespace QzHid
{
  internal sealed class PortId
  {
    /// <summary>Both are empty if the location names no USB port.</summary>
    public readonly string Controller = "", Port = "";

    public PortId(string location)
    {
      string[][] steps = location.Split('#').Select(ReadStep).ToArray();
      int root = Array.FindIndex(steps, step => step[0] == "USBROOT");
      uint number;
      if (root < 0 || !uint.TryParse(steps[root][1], out number)) return;
      string port = (number + 1).ToString(), separator = "-";
      foreach (string[] step in steps.Skip(root + 1))
      {
        if (step[0] != "USB" && step[0] != "USBMI") return;
        port += (step[0] == "USBMI" ? ":" : separator) + step[1];
        if (step[0] == "USB") separator = ".";
      }
      bool isFirstRoot = steps[0][0] == "PCIROOT" && steps[0][1] == "0";
      Controller = string.Join(".", steps.Take(root).Skip(isFirstRoot ? 1 : 0).Select(step => step[1]));
      Port = port;
    }

    public string Whole { get { return Controller.Length == 0 ? Port : Controller + "/" + Port; } }

    /// <summary>Without the interface of a composite device.</summary>
    public string Device { get { return Whole.Split(':')[0]; } }

    public bool Is(string text)
    {
      return Port.Length > 0 && (Same(text, Port) || Same(text, Whole));
    }

    /// <summary>Whether "wanted" is the location, or a number of whole steps at its end.</summary>
    public static bool IsLocation(string location, string wanted)
    {
      return wanted.Length > 0 && (Same(location, wanted) ||
                                   location.EndsWith("#" + wanted, StringComparison.OrdinalIgnoreCase));
    }

    /// <summary>Of "USB(3)": "USB" and "3".</summary>
    private static string[] ReadStep(string text)
    {
      Match match = Regex.Match(text, @"^([^(]*)\((.*)\)$");
      return match.Success ? new[] { match.Groups[1].Value, match.Groups[2].Value } : new[] { text, "" };
    }

    private static bool Same(string text, string other)
    {
      return string.Equals(text, other, StringComparison.OrdinalIgnoreCase);
    }
  }
}
