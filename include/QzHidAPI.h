/** @file
 * QzHidAPI: find and service USB hub controllers through their vendor HID interface.
 *
 * A host lists the attached hubs, opens one by its device-instance number and uses the handle to
 * read versions, to update the firmware, and to reach the I2C devices, flash and GPIO lines that
 * are connected to the hub.
 *
 * Rules for every function:
 *  - All work happens on the calling thread, which is blocked until the call returns. The progress
 *    callback runs on that same thread. Functions that only send requests (I2C, bridge and GPIO)
 *    run side by side on several threads; each request waits for the one before it, and fails with
 *    0xFFFFFFFF after five seconds. A function that lists, opens or closes waits for the calls of
 *    other threads, and they wait for it.
 *  - Nothing redirects a running QZ_UpdateDev to another hub. Until it has reported 100, every
 *    function that opens devices (listing, QZ_OpenHid, QZ_UpdateDev, the two version functions,
 *    QZ_GetHubVIDPIDFromHidDevice) fails immediately, also in the progress callback. On other
 *    threads every function that takes a handle fails until QZ_UpdateDev has returned. The log says
 *    "An update is running". Before the callback is called with 100, QZ_CloseDev on another
 *    thread leaves its handle open; after that, the handle is closed when QZ_UpdateDev returns. In
 *    the callback, QZ_CloseDev makes the update fail at its next step, and the bridge and GPIO
 *    functions work as usual.
 *  - QZ_SetLogPath, QZ_ConfigLog, QZ_GenerateDumplog, QZ_DllPassPara, QZ_FreeDevList and
 *    QZ_GetHidBinFileVIDPID can be called by any thread at any time.
 *  - One hub is open at a time. The library talks to the hub that was opened last. The functions
 *    that say "closes the device" end that connection, and the bridge and GPIO functions then
 *    return the system's invalid-handle code until QZ_OpenHid is called again. After listing, after
 *    QZ_CloseDev of any handle and after QZ_GetHubVIDPIDFromHidDevice, every function that talks to
 *    the hub of a handle fails until then, including QZ_UpdateDev and QZ_ReadDevVersion.
 *  - Multi-byte values are in the host's byte order unless said otherwise.
 *  - There are four kinds of results: a handle or null; a boolean (1 done, 0 failed); a 32-bit
 *    status; or nothing. A status is 0 for success and 0xFFFFFFFF (QZ_STATUS_REFUSED) when an
 *    argument or the handle is invalid or no device is set up. Otherwise it is the error code of
 *    the device or the operating system, unchanged: a Windows error code on Windows, an errno value
 *    on Linux.
 *  - The log says why a call failed; see QZ_SetLogPath and QZ_ConfigLog.
 *  - The process may exit, and on Linux fork, while threads are inside the library; the child can
 *    continue to use it. Where threads can be cancelled, a thread inside the library ends in the
 *    progress callback and nowhere else. That, or a callback that ends its thread, makes the update
 *    fail. The library can be unloaded when no thread is inside it, and then releases all that it
 *    holds.
 *  - No function throws. Paths are narrow text: the ANSI code page on Windows, unchanged bytes on
 *    Linux.
 */
#ifndef QZHIDAPI_H
#define QZHIDAPI_H

#include <stddef.h>
#include <stdint.h>

/** @def QZ_API
 * Marks a function that the library exports. */
#if defined(_WIN32) && defined(QZ_BUILDING_LIBRARY)
#define QZ_API __declspec(dllexport)
#elif defined(_WIN32)
#define QZ_API __declspec(dllimport)
#elif defined(__GNUC__)
#define QZ_API __attribute__((visibility("default")))
#else
#define QZ_API
#endif

/** Number of UTF-16 units in HwID and LocationPath of a record, including the terminator. */
#define QZ_RECORD_TEXT_UNITS 1024

/** The status of a call that was rejected before anything was sent. */
#define QZ_STATUS_REFUSED 0xFFFFFFFFu

/** dwDevType and dwDevSubType of a HID device, the only kind of device that is listed. */
#define QZ_DEVICE_TYPE_HID 4u

#ifdef __cplusplus
extern "C" {
typedef char16_t QZ_Utf16;
#else
typedef uint16_t QZ_Utf16; /**< one UTF-16 code unit */
#endif

/**
 * One listed HID device; 4136 bytes, natural alignment, integers little-endian, texts UTF-16LE and
 * zero-terminated with all unused units zero.
 */
typedef struct HidDevRecord {
  /** Device-instance number, for QZ_OpenHid. Valid for the last list of this process only: a device
   * that leaves and comes back may have the same number or another one. */
  uint32_t dwInst;
  /** Hardware ids of the HID node, one after another, each zero-terminated. */
  QZ_Utf16 HwID[QZ_RECORD_TEXT_UNITS];
  /** Location paths of the USB device, in the same form; the first names its port and is stable. */
  QZ_Utf16 LocationPath[QZ_RECORD_TEXT_UNITS];
  /** The four characters after "PID_" in HwID; empty when there is no "VID_". */
  QZ_Utf16 PID[5];
  /** The four characters after "VID_" in HwID. */
  QZ_Utf16 VID[5];
  /** Depth of the USB device below its root hub; 1 is a port of the root hub. */
  uint32_t Level;
  /** Port number of the USB device on its hub. */
  uint32_t Port;
  /** Kind of device: QZ_DEVICE_TYPE_HID. */
  uint32_t dwDevType;
  /** Second kind code: QZ_DEVICE_TYPE_HID. */
  uint32_t dwDevSubType;
} HidDevRecord;

/** @def QZ_STATIC_ASSERT
 * The static assertion of C or C++. Visual C++ has that of C++ in C, too, and that of C only with
 * /std:c11. */
#if defined(__cplusplus) || (defined(_MSC_VER) && !defined(__clang__))
#define QZ_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define QZ_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif
QZ_STATIC_ASSERT(sizeof(HidDevRecord) == 4136, "HidDevRecord is 4136 bytes");
QZ_STATIC_ASSERT(offsetof(HidDevRecord, HwID) == 4, "HwID is at byte 4");
QZ_STATIC_ASSERT(offsetof(HidDevRecord, LocationPath) == 2052, "LocationPath is at byte 2052");
QZ_STATIC_ASSERT(offsetof(HidDevRecord, PID) == 4100, "PID is at byte 4100");
QZ_STATIC_ASSERT(offsetof(HidDevRecord, VID) == 4110, "VID is at byte 4110");
QZ_STATIC_ASSERT(offsetof(HidDevRecord, Level) == 4120, "Level is at byte 4120");
QZ_STATIC_ASSERT(offsetof(HidDevRecord, Port) == 4124, "Port is at byte 4124");
QZ_STATIC_ASSERT(offsetof(HidDevRecord, dwDevType) == 4128, "dwDevType is at byte 4128");
QZ_STATIC_ASSERT(offsetof(HidDevRecord, dwDevSubType) == 4132, "dwDevSubType is at byte 4132");

/**
 * The crash handler that was installed before; see QZ_GenerateDumplog. Compare or restore it, but
 * do not call it.
 */
#if defined(_WIN32)
struct _EXCEPTION_POINTERS; /* the system's; NOLINT(bugprone-reserved-identifier) */
typedef long(__stdcall* QZ_ExceptionFilter)(struct _EXCEPTION_POINTERS*);
#else
typedef void (*QZ_ExceptionFilter)(int);
#endif

/** Progress of an update in percent, 0 to 100; called on the updating thread. */
typedef void (*QZ_ProgressCallback)(int32_t percent);

/* ---- Listing and opening --------------------------------------------------------------------- */

/**
 * Lists the attached HID devices that are hubs of the family and remembers them for QZ_OpenHid.
 *
 * A HID device counts as one of the family when its vendor id is 0x2E7C; else when "VidPid.ini"
 * in the folder of the library lists its ids (lines with VID:xxxx and PID:xxxx); else, without such
 * a file, when its product text contains "WQ HID". Each candidate is opened and closed for this.
 *
 * @param ppList  Receives an array of *pCount records; free it with QZ_FreeDevList. Not written
 *                when no device is found; null when a device could not be read.
 * @param pCount  Receives the number of devices found, also when their records could not be read.
 * @return 1 when at least one device is listed, else 0, also when a pointer is null.
 * The open device: released. Handles stay valid, but reach no hub until QZ_OpenHid.
 */
QZ_API uint8_t QZ_ListAllHidDev(HidDevRecord** ppList, uint32_t* pCount);

/**
 * Lists the attached HID devices whose first hardware id contains both ids, of the family or not.
 *
 * @param wVID    Only the low 16 bits count. The ids are searched for as lower-case hexadecimal
 *                text without leading zeros, anywhere in the hardware id.
 * @param wPID    As wVID.
 * @param ppList  As for QZ_ListAllHidDev.
 * @param pCount  As for QZ_ListAllHidDev.
 * @return As for QZ_ListAllHidDev.
 * The open device: released, as by QZ_ListAllHidDev.
 */
QZ_API uint8_t QZ_ListAllHidDevByVIDPID(uint32_t wVID, uint32_t wPID, HidDevRecord** ppList,
                                        uint32_t* pCount);

/** Frees an array that a listing function returned; null is allowed. Does not touch any device. */
QZ_API void QZ_FreeDevList(HidDevRecord* pList);

/**
 * Opens a hub of the last list and makes it the open device. Waits up to about 10 s for a hub that
 * is not attached, 15 s for one that is attached and does not answer.
 *
 * @param DevInst  dwInst of a record of the last QZ_ListAllHidDev or QZ_ListAllHidDevByVIDPID.
 * @return A handle for the other functions, which QZ_CloseDev closes; null when the number is not
 * in the last list or the hub does not answer. The open device: any other is released, also when
 * this call fails after it found the number.
 */
QZ_API void* QZ_OpenHid(uint32_t DevInst);

/**
 * Closes a handle and releases the open device, whichever handle it belongs to.
 *
 * @param pDev  A handle; null releases the open device only. An invalid handle is treated like
 * null.
 */
QZ_API void QZ_CloseDev(void* pDev);

/**
 * Sets an option for later updates: with 0 (the default) QZ_UpdateDev starts the new firmware at
 * its end, with any other value it does not, and the hub stays in its loader.
 */
QZ_API void QZ_DllPassPara(uint32_t value);

/* ---- Firmware -------------------------------------------------------------------------------- */

/**
 * Writes a firmware image to the hub's flash, checks it and starts it. Blocks for the whole update,
 * tens of seconds on a real hub, while the hub leaves the bus and comes back.
 *
 * @param pDev      A handle.
 * @param path      The image file. When it cannot be loaded (empty, not readable to its end, not a
 *                  regular file) the update fails before the hub is reset, and the hub keeps its
 *                  firmware. Any other file is written, whatever its length: the host must find out
 *                  before whether it is an image for this hub.
 * @param callback  Called with 0, 10, 20, 30 to 70 while writing, 90 and 100; with 0 after a
 *                  failure. May be null.
 * @return 1 when the image is written, checked and (see QZ_DllPassPara) started, else 0. After a
 *         failure the hub may be in its loader: list and open it again and repeat QZ_UpdateDev.
 *         This also works on the old handle, unless the hub has left its loader in the meantime.
 *         The check finds what the hub rejects or cannot read back; use QZ_ReadDevVersion to see
 *         whether the new firmware runs.
 * The open device: closes the device. Its device-instance number may have changed: list again.
 */
QZ_API uint8_t QZ_UpdateDev(void* pDev, const char* path, QZ_ProgressCallback callback);

/**
 * Reads the firmware version of an image file; sends nothing to the hub.
 *
 * @param pDev      A handle.
 * @param path      The image file.
 * @param pVersion  Receives the version, major in the high byte; unchanged on failure.
 * @return 1 on success, else 0 (no such file, not loaded, too short for a version, invalid handle).
 * The open device: closes the device.
 */
QZ_API uint8_t QZ_ReadBinVersion(void* pDev, const char* path, uint16_t* pVersion);

/**
 * Reads the version of the firmware that the hub runs. Waits up to about 20 s for the hub.
 *
 * @param pDev      A handle.
 * @param pVersion  Receives the version, major in the high byte; unchanged on failure.
 * @return 1 on success, else 0; also 0 when the hub is in its loader.
 * The open device: closes the device.
 */
QZ_API uint8_t QZ_ReadDevVersion(void* pDev, uint16_t* pVersion);

/**
 * Reads the hub's ids from an image file.
 *
 * @param path  The image file.
 * @param pVID  Receives the vendor id; unchanged on failure.
 * @param pPID  Receives the product id; unchanged on failure.
 * @return 1 on success, else 0 (null argument, no such file, not loaded, too short for the ids).
 * The open device: unchanged.
 */
QZ_API uint8_t QZ_GetHidBinFileVIDPID(const char* path, uint32_t* pVID, uint32_t* pPID);

/**
 * Opens a hub of the last list, reads its ids from its status block and closes it again.
 *
 * @param DevInst  As for QZ_OpenHid.
 * @param pVID     Receives the vendor id; unchanged on failure.
 * @param pPID     Receives the product id; unchanged on failure.
 * @return 1 on success, else 0 (null argument, not in the list, no answer).
 * The open device: released.
 */
QZ_API uint8_t QZ_GetHubVIDPIDFromHidDevice(uint32_t DevInst, uint32_t* pVID, uint32_t* pPID);

/* ---- I2C master and flash bridge ---------------------------------------------------------------
 * All return a status. An invalid handle, a null buffer and a length above its limit are rejected
 * before anything is sent. When a target does not acknowledge, the result is the system's error
 * code. None of these functions changes which device is open. */

/**
 * Stores the I2C settings for later transfers on this handle; sends nothing.
 *
 * @param pDev         A handle.
 * @param bySlaveAddr  Target address as the hub's I2C master expects it; not 0.
 * @param byMemLen     Number of memory address bytes, 0 to 5.
 * @param bySpeed      Speed code, 0 to 2.
 */
QZ_API uint32_t QZ_HidI2CConfig(void* pDev, uint8_t bySlaveAddr, uint8_t byMemLen, uint8_t bySpeed);

/** Writes 0 to 128 bytes from pBuf to the configured target, starting at memory address dwAddr. */
QZ_API uint32_t QZ_HidI2CWrite(void* pDev, uint32_t dwAddr, uint8_t* pBuf, uint16_t wlen);

/** Reads 1 to 192 bytes from the configured target into pBuf, starting at memory address dwAddr. */
QZ_API uint32_t QZ_HidI2CRead(void* pDev, uint32_t dwAddr, uint8_t* pBuf, uint16_t wlen);

/**
 * Reads from the configured target, with the memory address as separate bytes.
 *
 * @param pDev         A handle.
 * @param AddrBuf      wAddrBufLen address bytes, in the order in which dwAddr of QZ_HidI2CRead
 *                     stores them: least significant first. Must not be null.
 * @param wAddrBufLen  0 to 5; missing bytes are sent as 0.
 * @param pBuf         Receives the bytes read.
 * @param wBuflen      Number of bytes to read into pBuf; only the low 8 bits are sent.
 */
QZ_API uint32_t QZ_HidI2CRead2(void* pDev, uint8_t* AddrBuf, uint16_t wAddrBufLen, uint8_t* pBuf,
                               uint16_t wBuflen);

/** Writes 0 to 128 bytes to the flash behind the hub at byte address dwAddr. */
QZ_API uint32_t QZ_HidI2CBlockWriteFlash(void* pDev, uint32_t dwAddr, uint8_t* pBuf, uint16_t wlen);

/** Stages 0 to 128 bytes for the flash behind the hub at byte address dwAddr. */
QZ_API uint32_t QZ_Stage_Flash(void* pDev, uint32_t dwAddr, uint8_t* pBuf, uint16_t wlen);

/**
 * Sends the staging request without checking the length. More than 128 bytes do not fit into one
 * request: then only the first byte is sent.
 */
QZ_API uint32_t QZ_Write_Byte(void* pDev, uint32_t dwAddr, uint8_t* pBuf, uint16_t wlen);

/** Starts erasing the flash behind the hub; QZ_HidI2CBlockStatus shows when it is done. */
QZ_API uint32_t QZ_HidI2CBlockEraseFlash(void* pDev);

/** Reads the one status byte of the flash behind the hub into *pI2CStatus. */
QZ_API uint32_t QZ_HidI2CBlockStatus(void* pDev, uint8_t* pI2CStatus);

/**
 * Sends one raw command block: three command bytes, the 32-bit sum of dwAddr and dwOffset, and
 * byVdCmdPoolLen (0 to 54) bytes of pVdCmdPool.
 */
QZ_API uint32_t QZ_MST_HidI2CBlock(void* pDev, uint8_t byCmd1, uint8_t byCmd2, uint8_t byCmd3,
                                   uint32_t dwAddr, uint32_t dwOffset, uint8_t* pVdCmdPool,
                                   uint8_t byVdCmdPoolLen);

/* ---- GPIO --------------------------------------------------------------------------------------
 * Lines are numbered 0 to 23. None of these changes which device is open. */

/**
 * Reads a GPIO line.
 *
 * @param pDev    A handle.
 * @param gpio    The line.
 * @param pBuf    Receives the hub's answer.
 * @param length  Of pBuf, in bytes; only the low 16 bits count.
 * @return A status; 1 when the handle is invalid, the hub is not present or the number is out of
 *         range.
 */
QZ_API uint32_t QZ_HidGPIOR(void* pDev, uint32_t gpio, uint8_t* pBuf, uint32_t length);

/**
 * Sets a GPIO line to the low 8 bits of level.
 * @return As for QZ_HidGPIOR.
 */
QZ_API uint32_t QZ_HidGPIOW(void* pDev, uint32_t gpio, uint32_t level);

/**
 * Sets a hub GPIO by the hub's own numbering (16 bits, not checked).
 *
 * @param pDev   Anything but null: it is not checked, and the open hub gets the request.
 * @param gpio   The number.
 * @param level  The level.
 * @return 1 on success, else 0.
 */
QZ_API uint8_t QZ_HidSetHubGPIO(void* pDev, uint32_t gpio, uint8_t level);

/* ---- Log ---------------------------------------------------------------------------------------
 * Independent of any device. On Windows every new thread of the process switches logging on at
 * level 0; elsewhere logging is off until QZ_ConfigLog. */

/**
 * Chooses the log file. It is opened when logging to it starts for the first time, and then stays
 * the log file for the life of the process.
 *
 * @param path  A file, existing or not, in an existing folder that this process can read and write.
 *              A file name without a folder is rejected.
 * @return 1 when accepted, else 0.
 */
QZ_API int32_t QZ_SetLogPath(const char* path);

/**
 * Switches the log file on or off. The file is that of QZ_SetLogPath, else "info.txt" in the folder
 * of the library; it is emptied when logging to it starts for the first time. A file that cannot be
 * opened or written is not reported and disturbs nothing; after a full disk has space again, the
 * log continues.
 *
 * @param enable  0 switches off.
 * @param level   Lines below this level are dropped: 0 logs everything, 1 and 2 information, 3
 *                failures only.
 * @return 1.
 * During an update this also stops the calls of its progress callback.
 */
QZ_API int32_t QZ_ConfigLog(uint8_t enable, int32_t level);

/**
 * Makes the process write "ConsoleApplication1.dmp" to its current directory when it crashes: a
 * minidump on Windows, a text record (signal, fault address or sender, backtrace, modules) on
 * Linux. Anything that already has that name, except a directory, is removed. The process then ends
 * as it would have without this. From now on each thread that calls this library gets what a record
 * needs when its stack has overflowed.
 *
 * Unloading the library restores what was installed before. A handler that was installed later can
 * continue to call this one, which then calls what was installed before.
 *
 * @return The handler that was installed before; null when there was none.
 */
QZ_API QZ_ExceptionFilter QZ_GenerateDumplog(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* QZHIDAPI_H */
