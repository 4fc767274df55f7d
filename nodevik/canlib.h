/// @file
/// The CAN interface library CANlib, as far as the Kvaser driver uses it.
///
/// CANlib is a closed vendor library that a machine has or lacks. This unit therefore does not link against
/// it: the functions below bear the names, parameters and results of CANlib's own, and forward each call to
/// `libcanlib.so.1`, which the first canInitializeLibrary() loads with dlopen(3). It stays loaded until the
/// process ends.
///
/// A channel is a CAN controller; it is opened by its number and then named by a handle. A call returns canOK
/// or one of the negative error codes, which canGetErrorText() puts into words.
///
/// Without the library, or when it lacks one of the functions, every call returns canERR_DYNALOAD and leaves
/// what it was to fill in untouched, except that canGetErrorText() says that libcanlib.so.1 could not be
/// loaded. A later canInitializeLibrary() tries to load it anew.
///
/// Loading is safe between threads; what else CANlib allows to threads is its own affair.

#ifndef NODEVIK_CANLIB_H
#define NODEVIK_CANLIB_H

#include "nodevik/util/export.h"

/// A channel that is open; a negative value is a canStatus that tells why it could not be opened.
using canHandle = int;

/// Result of a call: canOK or a negative error code.
using canStatus = int;

/// @name Results
/// @{
constexpr canStatus canOK = 0;              ///< success
constexpr canStatus canERR_NOMSG = -2;      ///< no frame is waiting
constexpr canStatus canERR_DYNALOAD = -16;  ///< libcanlib.so.1 could not be loaded
/// @}

/// @name Flags of canOpenChannel(), or-ed together
/// @{
constexpr int canOPEN_EXCLUSIVE = 0x08;         ///< nobody else may open the channel
constexpr int canOPEN_REQUIRE_EXTENDED = 0x10;  ///< fail if the controller has no 29-bit identifiers
/// @}

/// @name Bit rates of canSetBusParams(); a positive value is a frequency in bit/s
/// @{
constexpr long canBITRATE_1M = -1;    ///< 1 Mbit/s
constexpr long canBITRATE_500K = -2;  ///< 500 kbit/s
constexpr long canBITRATE_250K = -3;  ///< 250 kbit/s
constexpr long canBITRATE_125K = -4;  ///< 125 kbit/s
constexpr long canBITRATE_100K = -5;  ///< 100 kbit/s
constexpr long canBITRATE_62K = -6;   ///< 62 kbit/s
constexpr long canBITRATE_50K = -7;   ///< 50 kbit/s
/// @}

/// @name Kinds of canSetBusOutputControl()
/// @{
constexpr unsigned int canDRIVER_SILENT = 1;  ///< listens only, does not acknowledge frames
constexpr unsigned int canDRIVER_NORMAL = 4;  ///< takes part in the bus
/// @}

/// @name Flags of a frame, or-ed together
/// @{
constexpr unsigned int canMSG_RTR = 1;  ///< remote request
constexpr unsigned int canMSG_STD = 2;  ///< 11-bit identifier
constexpr unsigned int canMSG_EXT = 4;  ///< 29-bit identifier
/// @}

/// @name Bits of a channel's status
/// @{
constexpr unsigned long canSTAT_TXERR = 0x80;   ///< there have been transmit errors
constexpr unsigned long canSTAT_RXERR = 0x100;  ///< there have been receive errors
/// @}

/// @name Functions of canIoCtl()
/// @{
constexpr unsigned int canIOCTL_FLUSH_RX_BUFFER = 10;  ///< drops all frames that wait to be read
constexpr unsigned int canIOCTL_FLUSH_TX_BUFFER = 11;  ///< drops all frames that wait to be sent
/// @}

/// Prepares the library: to be called before any other function; further calls do no harm.
NODEVIK_EXPORT void canInitializeLibrary();

/// Opens a channel.
///
/// @param channel  number of the channel, from 0
/// @param flags    canOPEN flags
/// @return the handle, or a negative error code
NODEVIK_EXPORT canHandle canOpenChannel(int channel, int flags);

/// Sets a channel's bit timing.
///
/// @param handle    the channel
/// @param freq      one of the bit rates, or bit/s
/// @param tseg1     quanta from (but not including) the Sync Segment to the sampling point; 0 with a bit rate
///                  constant
/// @param tseg2     quanta from the sampling point to the end of the bit
/// @param sjw       Synchronization Jump Width
/// @param noSamp    number of sampling points
/// @param syncmode  not used, 0
NODEVIK_EXPORT canStatus canSetBusParams(canHandle handle, long freq, unsigned int tseg1, unsigned int tseg2,
                                         unsigned int sjw, unsigned int noSamp, unsigned int syncmode);

/// Reads a channel's bit timing; the parameters are those of canSetBusParams(), with the frequency in bit/s.
NODEVIK_EXPORT canStatus canGetBusParams(canHandle handle, long* freq, unsigned int* tseg1,
                                         unsigned int* tseg2, unsigned int* sjw, unsigned int* noSamp,
                                         unsigned int* syncmode);

/// Sets how a channel drives the bus.
///
/// @param handle      the channel
/// @param drivertype  canDRIVER_NORMAL or canDRIVER_SILENT
NODEVIK_EXPORT canStatus canSetBusOutputControl(canHandle handle, unsigned int drivertype);

/// Takes a channel on the bus.
NODEVIK_EXPORT canStatus canBusOn(canHandle handle);

/// Takes a channel off the bus.
NODEVIK_EXPORT canStatus canBusOff(canHandle handle);

/// Closes a channel.
NODEVIK_EXPORT canStatus canClose(canHandle handle);

/// Fetches one frame without waiting.
///
/// @param handle  the channel
/// @param id      receives the identifier
/// @param msg     receives up to eight bytes of data
/// @param dlc     receives the number of bytes
/// @param flag    receives the frame's canMSG flags
/// @param time    receives the time of reception
/// @return canOK, canERR_NOMSG, or another error code
NODEVIK_EXPORT canStatus canRead(canHandle handle, long* id, void* msg, unsigned int* dlc, unsigned int* flag,
                                 unsigned long* time);

/// The same as canRead(), but waits for a frame.
///
/// @param timeout  longest wait in milliseconds
NODEVIK_EXPORT canStatus canReadWait(canHandle handle, long* id, void* msg, unsigned int* dlc,
                                     unsigned int* flag, unsigned long* time, unsigned long timeout);

/// Puts one frame into a channel's queue of frames to be sent.
///
/// @param handle  the channel
/// @param id      identifier
/// @param msg     data
/// @param dlc     number of bytes, 0 to 8
/// @param flag    canMSG flags
NODEVIK_EXPORT canStatus canWrite(canHandle handle, long id, void* msg, unsigned int dlc, unsigned int flag);

/// Reads a channel's status.
///
/// @param handle  the channel
/// @param flags   receives the canSTAT bits
NODEVIK_EXPORT canStatus canReadStatus(canHandle handle, unsigned long* flags);

/// Reads a controller's error counters.
///
/// @param handle  the channel
/// @param txErr   receives the number of transmit errors
/// @param rxErr   receives the number of receive errors
/// @param ovErr   receives the number of overruns
NODEVIK_EXPORT canStatus canReadErrorCounters(canHandle handle, unsigned int* txErr, unsigned int* rxErr,
                                              unsigned int* ovErr);

/// Performs one of the special functions on a channel.
///
/// @param handle  the channel
/// @param func    canIOCTL number
/// @param buf     what the function needs, may be null
/// @param buflen  number of bytes at @p buf
NODEVIK_EXPORT canStatus canIoCtl(canHandle handle, unsigned int func, void* buf, unsigned int buflen);

/// Puts an error code into words.
///
/// @param err     the code
/// @param buf     receives the text, cut to its size, with a terminating zero
/// @param bufsiz  number of bytes at @p buf
NODEVIK_EXPORT canStatus canGetErrorText(canStatus err, char* buf, unsigned int bufsiz);

#endif
