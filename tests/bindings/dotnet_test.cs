// The package for .NET on the virtual library. Environment: QZ_LIBRARY, QZHID and QZHUB. Each public method of
// Tests is a test.
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Reflection;
using System.Security.Cryptography;
using System.Text;
using System.Threading;
using QzHid;

class Tests
{
  const string Location = "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(1)";
  const string NotOpenable =
      "{'on': 'call', 'service': 'OpenHidDevice', 'device': 'hub', 'count': 0, 'action': 'fail', 'code': 13}";
  const string NeverReturns = "{'on': 'reset', 'action': 'never_return'}";
  const string OneHub = "{'name': 'hub', 'port': '3.1'}";
  static readonly string library = Environment.GetEnvironmentVariable("QZ_LIBRARY");
  static readonly string work = Path.Combine(Path.GetTempPath(), "qzhidapi-" + Guid.NewGuid().ToString("N"));

  // ---- What the tests share

  static string Hub(string members) { return "{'name': 'hub', 'port': '3.1', " + members + "}"; }

  static string Loss(string request, int nth = 1)
  {
    return "{'on': 'request', 'request': '" + request + "', 'nth': " + nth +
           ", 'action': 'power_loss', 'return_ms': 0}";
  }

  static Machine On(string devices = OneHub, string faults = "", string members = "")
  {
    return QzHidApi.Virtual(("{'time': 'virtual', 'control': 'hands.txt', 'devices': [" + devices + "], 'faults': [" +
                             faults + "]" + members + "}").Replace('\'', '"'), library);
  }

  static void Equal<T>(T expected, T actual)
  {
    if (!Equals(expected, actual)) throw new Exception("expected " + expected + ", got " + actual);
  }

  static void EqualLists<T>(IEnumerable<T> expected, IEnumerable<T> actual)
  {
    Equal(string.Join(", ", expected), string.Join(", ", actual));
  }

  static void Contains(string part, string text)
  {
    if (!text.Contains(part)) throw new Exception("no '" + part + "' in: " + text);
  }

  /// <summary>What the call throws, which is exactly of that kind.</summary>
  static T Failure<T>(Action call) where T : Exception
  {
    try
    {
      call();
    }
    catch (Exception error)
    {
      if (error.GetType() == typeof(T)) return (T)error;
      throw new Exception("expected " + typeof(T).Name + ", got " + error);
    }
    throw new Exception("expected " + typeof(T).Name);
  }

  static string Image(string name) { return Path.Combine(work, name + ".bin"); }

  static void MakeImage(string name, string options)
  {
    Equal(0, Run(Environment.GetEnvironmentVariable("QZHUB"), "image --size 32680 --out " + Image(name) + " " + options));
  }

  static int Run(string program, string arguments)
  {
    using (Process process = Process.Start(new ProcessStartInfo(program, arguments) {
             UseShellExecute = false, RedirectStandardError = true, RedirectStandardOutput = true }))
    {
      process.StandardError.ReadToEnd();
      process.WaitForExit();
      return process.ExitCode;
    }
  }

  static UpdateResult Update(string image, UpdateOptions options = null)
  {
    using (Hub hub = QzHid.Hub.Open())
    {
      options = options ?? new UpdateOptions();
      options.Wait = 0;
      return hub.Update(Image(image), options);
    }
  }

  static string Text(UpdateResult result)
  {
    return string.Join(" ", result.Outcome, result.Before, result.Runs, result.Retries);
  }

  // ---- Lists

  public void AListSaysWhereEachHubIsAndWhatItRuns()
  {
    using (On(OneHub + ", {'name': 'b', 'port': '4', 'running': 'rom', 'rom': {'pid': '0x0810'}}, " +
              "{'name': 'mouse', 'kind': 'other', 'port': '5', 'vid': '0x045E', 'pid': '0x1400'}"))
    {
      IList<HubInfo> hubs = QzHidApi.ListHubs();
      EqualLists(new[] { "1-3.1 firmware 1.02 2E7C:0818", "1-4 loader  2E7C:0810" }, hubs.Select(
          hub => string.Format("{0} {1} {2} {3:X4}:{4:X4}", hub.PortId, hub.State, hub.Version, hub.Vid, hub.Pid)));
      Equal(Location, hubs[0].Location);
      Equal(2u, hubs[0].Level);
      Equal(1u, hubs[0].Port);
      Equal("HID\\VID_2E7C&PID_0818&REV_0100", hubs[0].HardwareIds[0]);
      EqualLists(new[] { "1-5" }, QzHidApi.ListDevices(0x045E, 0x1400).Select(hub => hub.PortId));
      Equal(0, QzHidApi.ListDevices(0x045E, 0x0400).Count);
    }
  }

  public void HubsThatCannotBeOpenedOrDoNotAnswerAreListedAsSuch()
  {
    using (On("{'name': 'hub', 'port': '1'}, {'name': 'silent', 'port': '2'}, {'name': 'good', 'port': '3'}",
              NotOpenable + ", {'on': 'exchange', 'device': 'silent', 'count': 0, 'action': 'stall'}"))
    {
      EqualLists(new[] { "1-2 silent", "1-3 firmware", "1-1 no permission" },
            QzHidApi.ListHubs().Select(hub => hub + " " + hub.State));
      var error = Failure<PermissionDeniedException>(() => QzHid.Hub.Open("1-1"));
      Equal("the hub cannot be opened", error.What);
      Equal("1-1", error.Hub);
      Equal("refused", error.Outcome);
      Contains("udev rule", error.Remedy);
      using (Hub good = QzHid.Hub.Open("1-3")) Equal("1.02", good.Version());
    }
  }

  public void WithoutAHubTheListIsEmpty()
  {
    using (On("")) Equal(0, QzHidApi.ListHubs().Count);
    using (On("")) Failure<NoSuchHubException>(() => QzHid.Hub.Open());
  }

  public void PortIdsBeginWithTheControllerWhenThereAreSeveral()
  {
    using (On("{'name': 'a', 'port': '3.1'}, {'name': 'b', 'port': '2-3.1'}"))
      EqualLists(new[] { "1400/1-3.1", "1500/1-3.1" }, QzHidApi.ListHubs().Select(hub => hub.PortId));
  }

  public void OfAHubWithSeveralCollectionsOneIsListed()
  {
    using (On(Hub("'part': 'Col01', 'siblings': ['Col02']"))) Equal(1, QzHidApi.ListHubs().Count);
  }

  public void AHubIsNamedByPortIdNameLocationOrIds()
  {
    string names = Path.Combine(Environment.GetEnvironmentVariable("XDG_CONFIG_HOME"), "qzhid/ports.conf");
    Directory.CreateDirectory(Path.GetDirectoryName(names));
    File.WriteAllText(names, "# ports\nbay 3 = 1-3.1\n\nother=1-7 # empty\n");
    using (On("{'name': 'a', 'port': '3.1'}, {'name': 'b', 'port': '2', 'image': {'pid': '0x0820'}}, " +
              "{'name': 'c', 'port': '4.3.1'}"))
    {
      foreach (string line in new[] { "1-3.1|1-3.1", "1400/1-4.3.1|1-4.3.1", "bay 3|1-3.1", Location.ToLower() + "|1-3.1",
                                      "usbroot(0)#usb(2)|1-2", "2e7c:820|1-2", "PID=0820|1-2" })
      {
        using (Hub hub = QzHid.Hub.Open(line.Split('|')[0])) Equal(line.Split('|')[1], hub.Info.PortId);
      }
      foreach (string selector in new[] { "", "3.1", "1-3", "SB(2)", "Bay 3", "other", "2E7C:0821", "2E7C", "pid=",
                                          "vid=12E7C" })
      {
        Equal("attached are: 1-3.1 (bay 3), 1-2, 1-4.3.1",
              Failure<NoSuchHubException>(() => QzHid.Hub.Open(selector)).Remedy);
      }
      foreach (string selector in new[] { null, "vid=2E7C", "2E7C:0818", "USB(3)#USB(1)" })
      {
        Contains("1-3.1 (bay 3), ", Failure<WrongUseException>(() => QzHid.Hub.Open(selector)).Remedy);
      }
      foreach (string text in new[] { "bay 3|line 1 is not NAME = PORT", "a=1-1\nb=|line 2 is not NAME = PORT",
                                      "a=1-1\na=1-2|line 2 names 'a' again", "a=1-1\nb=1-1|line 2 gives port 1-1 another name",
                                      "a=1-|line 1 has '1-', which is not a port id",
                                      "a\x01=1-1|line 1 has a name with a control character",
                                      "1-2=1-1|line 1 has the name '1-2', which already means something else",
                                      "1400/1-2.1:0=1-1|line 1 has the name '1400/1-2.1:0', which", "2e7c:818=1-1|line 1 has the",
                                      "Usb(2)=1-1|line 1 has the name", "instance:7=1-1|line 1 has the name" })
      {
        File.WriteAllText(names, text.Split('|')[0]);
        Contains(text.Split('|')[1], Failure<QzHidException>(() => QzHidApi.ListHubs()).What);
      }
    }
    File.Delete(names);
  }

  // ---- Requests

  public void LinesTargetsAndFlashAreReached()
  {
    using (On(Hub("'gpio_high': [5], 'bridge_flash': {'size': 4096, 'busy_polls': 3}, " +
                  "'i2c': [{'kind': 'eeprom', 'address': '0xA0', 'page_size': 8}]")))
    using (Hub hub = QzHid.Hub.Open())
    {
      EqualLists(new[] { 0, 1, 0 }, new[] { 0, 5, 23 }.Select(hub.GpioGet));
      hub.GpioDrive(23, 1);
      hub.GpioSet(3, 1);
      Equal(1, QzHidApi.ListDevices(0x2E7C, 0x0818).Count);
      EqualLists(new[] { 1, 1 }, new[] { 23, 3 }.Select(hub.GpioGet));
      byte[] data = Enumerable.Range(1, 250).Select(one => (byte)one).ToArray();
      I2CTarget target = hub.I2C(0xA0);
      target.Write(5, data);
      EqualLists(Enumerable.Repeat((byte)255, 5).Concat(data).Concat(new byte[] { 255 }), target.Read(0, 256));
      EqualLists(data.Take(192), target.ReadAt(new byte[] { 5, 0 }, 192));
      hub.FlashWrite(0, new byte[300]);
      Equal(0, hub.FlashStatus());
      hub.FlashStage(512, new byte[2]);
      hub.FlashErase();
      Equal(0, hub.FlashStatus());
      Failure<RequestFailedException>(() => hub.FlashWrite(4096, new byte[1]));
    }
  }

  public void RequestsHaveTheBytesThatWereAskedFor()
  {
    string wire = Path.Combine(work, "wire.pcapng");
    byte[] ab = { 0x61, 0x62 };
    foreach (KeyValuePair<string, Action<Hub>> one in new Dictionary<string, Action<Hub>> {
               { "40F201020003300000006162", hub => hub.BlockCommand(1, 2, 3, 0x10, 0x20, ab) },
               { "40F20102000304030201", hub => hub.BlockCommand(1, 2, 3, 0x01020304) },
               { "40C6020100000200A00281", hub => hub.I2C(0xA0, 2, 1).Write(0x0102, ab) },
               { "40D6020100000900A00182", hub => hub.I2C(0xA0, 1, 2).Read(0x0102, 9) },
               { "40D6010203040905A00580", hub => hub.I2C(0xA0, 5).ReadAt(new byte[] { 1, 2, 3, 4, 5 }, 9) },
               { "40F1040302010200", hub => hub.FlashWrite(0x01020304, ab) },
               { "00CF040302010200", hub => hub.FlashStage(0x01020304, ab) },
               { "40040101020100", hub => hub.GpioSet(0x0102, 1) },
               { "400C0005000100", hub => hub.GpioDrive(5, 1) } })
    {
      using (On(OneHub, "", ", 'capture': '" + wire + "'"))
      using (Hub hub = QzHid.Hub.Open())
      {
        try { one.Value(hub); } catch (RequestFailedException) { /* the hub has nothing behind it */ }
      }
      if (!BitConverter.ToString(File.ReadAllBytes(wire)).Replace("-", "").Contains(one.Key)) throw new Exception(one.Key);
      File.Delete(wire);
    }
  }

  public void AWriteWaitsWhileTheEepromStoresAPage()
  {
    using (On(Hub("'i2c': [{'kind': 'eeprom', 'address': '0xA0'}]"),
              "{'on': 'request', 'request': '40/C6', 'nth': 2, 'count': 3, 'action': 'stall'}"))
    using (Hub hub = QzHid.Hub.Open())
    {
      hub.I2C(0xA0).Write(0, new byte[16]);
      EqualLists(new byte[16], hub.I2C(0xA0).Read(0, 16));
    }
  }

  public void ARefusedRequestSaysStatusAndRemedyAndTheNextOneWorks()
  {
    using (On(Hub("'gpio_high': [1]")))
    using (Hub hub = QzHid.Hub.Open())
    {
      var error = Failure<RequestFailedException>(() => hub.I2C(0x42).Read(0, 4));
      Equal(32u, error.Status);
      Equal("hub 1-3.1: the I2C read failed with status 32 (the hub or the target refused it); check the address and " +
            "that the hub runs its firmware", error.Message);
      Equal(1, hub.GpioGet(1));
    }
  }

  public void AHubThatLeftIsLostAndUsableWhenItIsBack()
  {
    using (Machine machine = On(Hub("'gpio_high': [1]")))
    using (Hub hub = QzHid.Hub.Open())
    {
      machine.Unplug("hub");
      Contains("and the hub is gone", Failure<HubLostException>(() => hub.GpioGet(1)).What);
      machine.Plug("hub");
      Equal(1, hub.GpioGet(1));
    }
  }

  public void WhatIsOutOfRangeIsRejectedBeforeAnythingIsSent()
  {
    using (On())
    using (Hub hub = QzHid.Hub.Open())
    {
      foreach (Action call in new Action[] {
                 () => hub.GpioGet(24), () => hub.GpioGet(-1), () => hub.GpioDrive(0, 2), () => hub.GpioSet(65536, 1),
                 () => hub.I2C(0), () => hub.I2C(1, 6), () => hub.I2C(1, 2, 3), () => hub.I2C(1).Read(uint.MaxValue, 2),
                 () => hub.I2C(1).Write(0, new byte[1], 129), () => hub.I2C(1).ReadAt(new byte[6], 1),
                 () => hub.BlockCommand(0, 0, 0, 0, 0, new byte[55]), () => hub.FlashWrite(uint.MaxValue, new byte[2]) })
      {
        Failure<ArgumentOutOfRangeException>(call);
      }
      Failure<ArgumentException>(() => hub.Update(Image("new"), new UpdateOptions { Sha256 = "12" }));
    }
  }

  // ---- Updates

  public void AnUpdateReportsProgressAndWhatTheHubRuns()
  {
    using (On(Hub("'gpio_high': [2]")))
    using (Hub hub = QzHid.Hub.Open())
    {
      var steps = new List<int>();
      Equal("updated 1.02 2.10 0", Text(hub.Update(Image("new"), new UpdateOptions { Progress = steps.Add })));
      EqualLists(steps.OrderBy(step => step), steps);
      EqualLists(new[] { 0, 10, 20 }, steps.Take(3));
      EqualLists(new[] { 70, 90, 100 }, steps.Skip(steps.Count - 3));
      Equal(1, hub.GpioGet(2));
      HubState state = hub.State();
      Equal("2E7C:0818 2.10", string.Format("{0:X4}:{1:X4} {2}", state.Vid, state.Pid, state.Version));
    }
  }

  public void AnImageThatIsNotForTheHubIsRefused()
  {
    using (On())
    using (Hub hub = QzHid.Hub.Open())
    {
      foreach (string line in new[] {
                 "vendor|the image is for vendor 2E7D, the hub is of vendor 2E7C|use an image for this hub",
                 "product|the image is for product 0820, the hub is product 0818|" +
                     "use an image for this hub, or Force to write it anyway",
                 "older|the hub runs 1.02, which is newer than the image's 1.01|" +
                     "use a newer image, or AllowOlder to write it anyway" })
      {
        string[] parts = line.Split('|');
        var error = Failure<RefusedException>(() => hub.Update(Image(parts[0])));
        EqualLists(new[] { parts[1], parts[2], "1-3.1", "1.02", "refused" },
              new[] { error.What, error.Remedy, error.Hub, error.Runs, error.Outcome });
      }
      var all = new UpdateOptions { Force = true, AllowOlder = true };
      Failure<RefusedException>(() => hub.Update(Image("vendor"), all));
      Equal("current 1.02 1.02 0", Text(hub.Update(Image("same"))));
      Equal("updated 1.02 1.02 0", Text(hub.Update(Image("same"), new UpdateOptions { Force = true })));
      Equal("1.01", hub.Update(Image("older"), new UpdateOptions { AllowOlder = true }).Runs);
      Equal("2.10", hub.Update(Image("product"), new UpdateOptions { Force = true }).Runs);
    }
  }

  public void AFileThatIsNotTheWantedImageIsRefused()
  {
    byte[] good = File.ReadAllBytes(Image("new"));
    File.WriteAllBytes(Image("short"), good.Take(32679).ToArray());
    File.WriteAllBytes(Image("long"), new byte[0x1000001]);
    File.WriteAllBytes(Image("damaged"), good.Take(32679).Concat(new byte[1]).ToArray());
    Directory.CreateDirectory(Image("folder"));
    string digest = BitConverter.ToString(SHA256.Create().ComputeHash(good)).Replace("-", "");
    using (On())
    {
      foreach (string line in new[] { "short|is too short: 32679 bytes of at least 32680", "long|is too long",
                                      "damaged|is damaged", "folder|is not a regular file", "none|does not exist" })
      {
        Contains(line.Split('|')[1], Failure<RefusedException>(() => Update(line.Split('|')[0])).What);
      }
      Contains("is longer than the flash: 32680 bytes of at most 32679",
               Failure<RefusedException>(() => Update("new", new UpdateOptions { FlashSize = 32679 })).What);
      Contains("has the SHA-256 " + digest.ToLower(), Failure<RefusedException>(
          () => Update("new", new UpdateOptions { Sha256 = new string('0', 64) })).What);
      Equal("updated", Update("new", new UpdateOptions { Sha256 = digest, FlashSize = 32680 }).Outcome);
    }
  }

  public void ATryThatFailsIsRepeatedAlsoFromTheLoader()
  {
    // After a loss of power in the check of the flash, the hub runs the image.
    foreach (string line in new[] { "40/00 1", "40/E8 1", "40/C8 1", "C0/D8 0" })
    {
      string[] words = line.Split(' ');
      using (On(OneHub, Loss(words[0]))) Equal("updated 1.02 2.10 " + words[1], Text(Update("new")));
    }
  }

  public void TheHubIsAwaitedWhenItIsAway()
  {
    string timing = "'timing': {'latency_us': 0, 'erase_ms': 5, 'leave_ms': 1, 'return_ms': 260, 'ready_ms': 1}";
    using (On(Hub(timing), Loss("40/C8", 5).Replace("'return_ms': 0", "'return_ms': 700"), ", 'host': {}"))
    {
      string scenario = File.ReadAllText(Environment.GetEnvironmentVariable("QZ_VIRTUAL_HUB"));
      File.WriteAllText(Environment.GetEnvironmentVariable("QZ_VIRTUAL_HUB"), scenario.Replace("virtual", "real"));
      using (Hub hub = QzHid.Hub.Open())
        Equal("updated 1.02 2.10 1", Text(hub.Update(Image("new"), new UpdateOptions { Retries = 1, Wait = 20 })));
    }
  }

  public void AVersionThatCannotBeReadOnceIsReadAgain()
  {
    using (On(OneHub, "{'on': 'request', 'request': 'C0/09', 'nth': 2, 'action': 'stall'}"))
      Equal("1.02", QzHidApi.ListHubs()[0].Version);
  }

  public void AHubThatLeavesWhileItIsAskedIsAskedAgain()
  {
    using (On(OneHub, "{'on': 'request', 'request': 'C0/09', 'action': 'unplug', 'return_ms': 0}"))
      Equal("updated 1.02 2.10 0", Text(Update("new")));
  }

  public void ATryWithAnOlderImageIsRepeatedToo()
  {
    using (On(OneHub, Loss("40/00")))
      Equal("updated 1.02 1.01 1", Text(Update("older", new UpdateOptions { AllowOlder = true })));
  }

  public void AHubThatStartsItsOtherBankIsNotUpdated()
  {
    using (On(Hub("'dual_bank': true"), "{'on': 'request', 'request': '40/C8', 'count': 0, 'action': 'lose_write'}"))
      Equal("the image is written, but not started, and the hub runs 1.02",
            Failure<UpdateFailedException>(() => Update("new", new UpdateOptions { Retries = 0 })).What);
  }

  public void BytesAfterTheImageAreNoDamage()
  {
    File.WriteAllBytes(Image("longer"), File.ReadAllBytes(Image("new")).Concat(new byte[4]).ToArray());
    using (On()) Equal("2.10", Update("longer").Runs);
  }

  public void AHubThatStaysInItsLoaderIsReportedAndRecovered()
  {
    using (On(OneHub, Loss("40/C8", 5) + ", " + Loss("40/C8", 10)))
    using (Hub hub = QzHid.Hub.Open())
    {
      var error = Failure<InLoaderException>(() => hub.Update(Image("new"), new UpdateOptions { Retries = 1, Wait = 0 }));
      EqualLists(new[] { "the update failed, and the hub is in its loader", "loader", "loader" },
            new[] { error.What, error.Runs, error.Outcome });
      Equal(null, hub.Version());
      Failure<InLoaderException>(() => hub.Update(Image("new")));
      Failure<RefusedException>(() => hub.Recover(Image("vendor")));
      Equal("updated loader 2.10 0", Text(hub.Recover(Image("new"))));
      Contains("the hub runs its firmware 2.10", Failure<RefusedException>(() => hub.Recover(Image("same"))).What);
    }
  }

  public void AnUpdateThatFailsBeforeTheEraseLeavesTheFirmware()
  {
    using (On(OneHub, "{'on': 'request', 'request': '40/00', 'count': 0, 'action': 'stall'}"))
    {
      var error = Failure<UpdateFailedException>(() => Update("new"));
      EqualLists(new[] { "the update failed, and the hub runs 1.02", "1.02", "failed" },
            new[] { error.What, error.Runs, error.Outcome });
    }
  }

  public void AHubThatDoesNotComeBackIsLost()
  {
    using (On(OneHub, NeverReturns))
    {
      var error = Failure<HubLostException>(() => Update("new"));
      EqualLists(new[] { "the update failed, and the hub has left the bus", null, "lost" },
            new[] { error.What, error.Runs, error.Outcome });
    }
  }

  public void AHubThatCannotBeOpenedAnyMoreIsReportedAsSuch()
  {
    using (On(OneHub, NotOpenable.Replace("'count'", "'nth': 6, 'count'")))
      Contains("udev rule", Failure<PermissionDeniedException>(() => Update("new")).Remedy);
    using (On(OneHub, NotOpenable.Replace("'count'", "'nth': 20, 'count'")))
      Equal("the update failed, and the hub cannot be opened", Failure<HubLostException>(() => Update("new")).What);
  }

  public void AnotherHubAtThePortIsNotWritten()
  {
    using (Machine machine = On(OneHub + ", {'name': 'other', 'port': '3.1', 'plugged': false, 'image': {'pid': '0x0820'}}"))
    {
      Action<int> swap = percent =>
      {
        if (percent != 10) return;
        machine.Unplug("hub");
        machine.Plug("other");
      };
      Contains("and another hub has taken its place",
               Failure<HubLostException>(() => Update("new", new UpdateOptions { Progress = swap })).What);
    }
  }

  public void AHubCanStayInItsLoader()
  {
    using (On()) Equal("loader", Update("new", new UpdateOptions { StayInLoader = true }).Runs);
  }

  public void QzhidDoesNotWriteAHubMeanwhile()
  {
    using (On())
    {
      int status = 0;
      Action<int> interfere = percent =>
      {
        if (percent == 10) status = Run(Environment.GetEnvironmentVariable("QZHID"),
                                        "--library " + library + " update --yes --image " + Image("new"));
      };
      Equal("updated 1.02 2.10 0", Text(Update("new", new UpdateOptions { Progress = interfere })));
      Equal(5, status);
    }
  }

  // ---- Wrong use

  public void AHubThatIsClosedIsRejected()
  {
    using (On())
    {
      Hub hub = QzHid.Hub.Open();
      I2CTarget target = hub.I2C(0xA0);
      hub.Dispose();
      foreach (Action call in new Action[] { () => hub.State(), () => hub.Version(), () => hub.Update(Image("new")),
                                             () => hub.Recover(Image("new")), () => hub.GpioGet(1),
                                             () => hub.FlashErase(), () => target.Read(0, 1) })
      {
        Failure<HubClosedException>(call);
      }
      hub.Dispose();
    }
  }

  public void ASecondHubIsRejectedWhileOneIsOpen()
  {
    using (On("{'name': 'a', 'port': '1', 'gpio_high': [1]}, {'name': 'b', 'port': '2'}"))
    {
      using (Hub first = QzHid.Hub.Open("1-1"))
      {
        Contains("hub 1-1 is open", Failure<HubInUseException>(() => QzHid.Hub.Open("1-2")).What);
        Failure<HubInUseException>(() => QzHidApi.UseLibrary(null));
        Equal(1, first.GpioGet(1));
      }
      using (Hub second = QzHid.Hub.Open("1-2")) Equal("1-2", second.Info.PortId);
    }
  }

  public void TwoThreadsAndCallsFromTheCallbackAreRejected()
  {
    using (On())
    using (Hub hub = QzHid.Hub.Open())
    {
      var kinds = new List<string>();
      Action<Action> note = call =>
      {
        try { call(); } catch (Exception error) { kinds.Add(error.GetType().Name); }
      };
      Action<int> interfere = percent =>
      {
        if (percent != 10) return;
        note(() => hub.GpioGet(1));
        foreach (Action call in new Action[] { () => hub.GpioGet(1), () => QzHidApi.ListHubs(), hub.Dispose,
                                               () => hub.Update(Image("new")) })
        {
          var thread = new Thread(() => note(call));
          thread.Start();
          thread.Join();
        }
      };
      Equal("2.10", hub.Update(Image("new"), new UpdateOptions { Progress = interfere }).Runs);
      EqualLists(Enumerable.Repeat("HubInUseException", 5), kinds);
    }
  }

  public void WhatTheCallbackThrowsIsThrownWhenTheUpdateIsComplete()
  {
    using (On())
    using (Hub hub = QzHid.Hub.Open())
    {
      int calls = 0;
      Action<int> fail = percent => { ++calls; throw new TimeZoneNotFoundException(); };
      Failure<TimeZoneNotFoundException>(() => hub.Update(Image("new"), new UpdateOptions { Progress = fail }));
      Equal(1, calls);
      Equal("2.10", hub.Version());
    }
  }

  public void AFailedUpdateCountsMoreThanWhatTheCallbackThrows()
  {
    using (On(OneHub, NeverReturns))
    {
      Action<int> fail = percent => { throw new TimeZoneNotFoundException(); };
      var error = Failure<HubLostException>(() => Update("new", new UpdateOptions { Progress = fail }));
      Equal(typeof(TimeZoneNotFoundException), error.InnerException.GetType());
      Equal("the update failed, and the hub has left the bus", error.What);
    }
  }

  public void AFileThatIsNoSuchLibraryIsRejected()
  {
    foreach (string line in new[] { "/nowhere/lib.so|cannot be loaded", "libc.so.6|has no function QZ_ListAllHidDev" })
    {
      QzHidApi.UseLibrary(line.Split('|')[0]);
      Contains(line.Split('|')[1], Failure<LibraryException>(() => QzHidApi.ListHubs()).What);
    }
    QzHidApi.UseLibrary(null);
  }

  // Last: the first log stays the log.
  public void XALogIsWritten()
  {
    string log = Path.Combine(work, "log.txt");
    using (On())
    {
      Failure<QzHidException>(() => QzHidApi.LogTo("/nowhere/log.txt"));
      QzHidApi.LogTo(log, 1);
      QzHidApi.ListHubs();
      QzHidApi.StopLog();
    }
    Contains("QZ_ListAllHidDev, List Device Success", File.ReadAllText(log));
  }

  static int Main()
  {
    Directory.CreateDirectory(work);
    int failures = 0, count = 0;
    try
    {
      foreach (string image in new[] { "new|--version 0210", "vendor|--version 0210 --vid 2E7D", "product|--version 0210 --pid 0820",
                                       "older|--version 0101", "same|--version 0102" })
      {
        MakeImage(image.Split('|')[0], image.Split('|')[1]);
      }
      foreach (MethodInfo test in typeof(Tests).GetMethods(BindingFlags.Public | BindingFlags.Instance | BindingFlags.DeclaredOnly))
      {
        ++count;
        try
        {
          test.Invoke(new Tests(), null);
        }
        catch (TargetInvocationException error)
        {
          ++failures;
          Console.Error.WriteLine("{0}: {1}", test.Name, error.InnerException);
        }
      }
    }
    finally
    {
      Directory.Delete(work, true);
    }
    Console.WriteLine("{0} tests, {1} failed", count, failures);
    return failures == 0 && count > 20 ? 0 : 1;
  }
}
