// installed.exe IMAGE: what an installed package does, on virtual hubs.
using System;
using System.Collections.Generic;
using System.Linq;
using QzHid;

static class Program
{
  static Machine Virtual(string members, string faults)
  {
    string scenario = "{'time': 'virtual', 'devices': [{'name': 'hub', 'port': '3.1'" + members + "}], 'faults': [" +
                      faults + "]}";
    return QzHidApi.Virtual(scenario.Replace('\'', '"'));
  }

  static void Main(string[] arguments)
  {
    var steps = new List<int>();
    using (Virtual("", ""))
    using (Hub hub = Hub.Open())
    {
      UpdateResult result = hub.Update(arguments[0], new UpdateOptions { Progress = steps.Add });
      Console.WriteLine("updated {0} to {1}, progress {2} to {3}", result.Before, result.Runs, steps[0], steps.Last());
    }
    using (Virtual(", 'image': {'cut_after': 4096}", ""))
    using (Hub hub = Hub.Open())
    {
      UpdateResult result = hub.Recover(arguments[0]);
      Console.WriteLine("recovered {0} to {1}", result.Before, result.Runs);
    }
    using (Virtual("", "{'on': 'request', 'request': '40/C8', 'nth': 9, 'action': 'power_loss', 'return_ms': 0}"))
    using (Hub hub = Hub.Open())
    {
      UpdateResult result = hub.Update(arguments[0]);
      Console.WriteLine("interrupted, then {0} with {1} retry", result.Outcome, result.Retries);
    }
    using (Virtual("", "{'on': 'call', 'service': 'OpenHidDevice', 'device': 'hub', 'count': 0, 'action': 'fail', " +
                       "'code': 13}"))
    {
      try
      {
        Hub.Open();
      }
      catch (PermissionDeniedException error)
      {
        Console.WriteLine("PermissionDenied for hub {0}: {1}", error.Hub, error.What);
      }
    }
  }
}
