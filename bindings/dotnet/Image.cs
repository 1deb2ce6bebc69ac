// Firmware image files.
using System;
using System.IO;
using System.Linq;
using System.Security.Cryptography;
using System.Text;
using System.Text.RegularExpressions;

namespace QzHid
{
  /// <summary>What an image file says about itself.</summary>
  internal sealed class Image
  {
    private const int Shortest = 0x7FA8;  // all ids and versions are before that
    private const int Longest = 0x1000000;  // larger than any flash
    private const int SealAt = 0x7F80;
    private static readonly byte[] Seal = Encoding.ASCII.GetBytes("VHUBSEAL");

    public uint Vid, Pid;
    public ushort Version;

    /// <summary>The contents of an image file. Throws RefusedException when it is not one, or not the wanted one.</summary>
    public static byte[] Read(string file, string sha256, long? flashSize)
    {
      if (sha256 != null && !Regex.IsMatch(sha256, "^[0-9a-fA-F]{64}$"))
      {
        throw new ArgumentException("'" + sha256 + "' is not 64 hexadecimal digits");
      }
      byte[] data = Contents(file);
      if (IsDamaged(data)) throw NotOne(file, "is damaged: its length or checksum is wrong");
      if (data.Length > (flashSize ?? data.Length))
      {
        throw new RefusedException(string.Format("image {0} is longer than the flash: {1} bytes of at most {2}", file,
                                                 data.Length, flashSize), "use the image for this hub");
      }
      string digest;
      using (var hash = SHA256.Create()) digest = string.Concat(hash.ComputeHash(data).Select(one => one.ToString("x2")));
      if (sha256 != null && digest != sha256.ToLowerInvariant())
      {
        throw new RefusedException("image " + file + " has the SHA-256 " + digest, "use the image that has " + sha256);
      }
      return data;
    }

    /// <summary>Does the work with a file with that contents that nobody else can replace between the check and the
    /// writing.</summary>
    public static T WithPrivateCopy<T>(byte[] data, Func<string, T> work)
    {
      string folder = null;
      try
      {
        string copy;
        try
        {
          folder = TemporaryFolder.Make();
          copy = Path.Combine(folder, "image.bin");
          File.WriteAllBytes(copy, data);
        }
        catch (IOException error)
        {
          throw NoCopy(error.Message);
        }
        return work(copy);
      }
      finally
      {
        if (folder != null) TemporaryFolder.Remove(folder);
      }
    }

    /// <summary>What the image says; the handle is that of any hub.</summary>
    public static Image Identify(Library library, IntPtr handle, string copy)
    {
      var image = new Image();
      if (library.Api.QZ_GetHidBinFileVIDPID(copy, out image.Vid, out image.Pid) == 0 ||
          library.Api.QZ_ReadBinVersion(handle, copy, out image.Version) == 0)
      {
        throw NoCopy("it cannot be read");
      }
      return image;
    }

    private static byte[] Contents(string file)
    {
      if (Directory.Exists(file)) throw NotOne(file, "is not a regular file");
      if (!File.Exists(file)) throw NotOne(file, "does not exist");
      long size = new FileInfo(file).Length;  // of anything but a regular file, 0
      if (size < Shortest) throw NotOne(file, "is too short: " + size + " bytes of at least " + Shortest);
      if (size > Longest) throw NotOne(file, "is too long: " + size + " bytes of at most " + Longest);
      byte[] data;
      try
      {
        data = File.ReadAllBytes(file);
      }
      catch (Exception error) when (error is IOException || error is UnauthorizedAccessException)
      {
        throw NotOne(file, "cannot be read: " + error.Message);
      }
      if (data.Length < Shortest) throw NotOne(file, "has changed while it was read");
      return data;
    }

    /// <summary>Of images that hold their own length and checksum, as those that qzhub makes.</summary>
    private static bool IsDamaged(byte[] data)
    {
      if (!data.Skip(SealAt).Take(Seal.Length).SequenceEqual(Seal)) return false;
      uint length = BitConverter.ToUInt32(data, SealAt + 8);
      if (length < Shortest || length > data.Length) return true;
      uint checksum = Crc32(Crc32(0, data, 0, SealAt + 12), data, SealAt + 16, (int)length);
      return checksum != BitConverter.ToUInt32(data, SealAt + 12);
    }

    private static uint Crc32(uint before, byte[] data, int start, int end)
    {
      uint value = ~before;
      for (int at = start; at < end; ++at)
      {
        value ^= data[at];
        for (int bit = 0; bit < 8; ++bit) value = (value >> 1) ^ ((value & 1) != 0 ? 0xEDB88320u : 0);
      }
      return ~value;
    }

    private static RefusedException NotOne(string file, string why)
    {
      return new RefusedException("image " + file + " " + why, "give the complete image file");
    }

    private static QzHidException NoCopy(string why)
    {
      return new QzHidException("a private copy of the image cannot be made: " + why,
                                "free some space in the temporary folder, or choose another one with TMPDIR");
    }
  }
}
