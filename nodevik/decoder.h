/// @file
/// Decoding, colouring, printing and logging of CAN frames: the base of every CAN driver and of the CANopen
/// master.
///
/// A frame on the bus is an identifier (11 or 29 bits), a length from 0 to 8 and up to eight data bytes. A
/// decoder turns one frame into one line of text:
///
/// @code
/// print_message(id, len, data)   prints the line that is pending, then builds the line of this frame
/// add_printf(" [R]")             adds to the line of this frame
/// print()                        prints the line that is pending, without waiting for the next frame
/// @endcode
///
/// A line of print_message() is thus printed when the next frame is decoded. That is what lets a driver add
/// " [R]" or " [T]" and the master add its CANopen interpretation to the line of the frame that has just
/// passed. The master, which comes last, waits for no further frame: what it has decoded it prints at once.
///
/// A printed line goes to standard output in its colour and, while a log is open, to the log file as well.
/// The line being built, its colour, the callback and the log are shared by all decoders of the process,
/// since a driver and the master work on the same line. Nothing of it is guarded: use all decoders of a
/// process from one thread.

#ifndef NODEVIK_DECODER_H
#define NODEVIK_DECODER_H

#include <cstddef>
#include <cstdint>
#include <fstream>

#include "nodevik/util/export.h"

/// Kinds of frames, the bits of a type filter. Kinds may be or-ed together.
enum decoder_messagetypes : uint32_t {
    D_NMT = 1,         ///< network management commands
    D_TPDO = 4,        ///< process data that a node transmits
    D_RPDO = 8,        ///< process data that a node receives
    D_SDO = 16,        ///< service data requests and responses
    D_SYNC = 32,       ///< SYNC and emergency frames
    D_HEARTBEAT = 64,  ///< node guarding and heartbeat
    D_ALL = 255        ///< every kind
};

/// Turns CAN frames into lines of text, prints and logs them.
///
/// This class prints a raw dump of every frame; a derived class overrides decode_message() with an
/// interpretation of its own and may honour the type filter there.
class NODEVIK_EXPORT CDecoder {
public:
    /// A function that is handed a finished line.
    using message_callback = void (*)(const char* line);

    /// Builds a decoder whose type filter is 0.
    CDecoder();

    /// Closes the log if it is open, whichever decoder opened it: the log is shared by all decoders.
    virtual ~CDecoder();

    /// Replaces the type filter.
    ///
    /// @param filter  set of decoder_messagetypes bits: the kinds that are printed
    virtual void set_typefilter(uint32_t filter);

    /// Builds the line of one frame. This class empties the line and dumps the frame:
    /// "id 0x00000181  len 2  data 01 02 00 00 00 00 00 00", always with eight data bytes, whatever the
    /// length.
    ///
    /// @param id    identifier of the frame
    /// @param len   number of data bytes, 0 to 8
    /// @param data  the data; eight bytes must be readable, whatever @p len
    /// @return 0 to have the line printed, anything else to have it dropped
    virtual int decode_message(uint32_t id, uint8_t len, const void* data) const;

    /// Switches kinds of frames on or off in the type filter and leaves the others as they are.
    ///
    /// @param type    set of decoder_messagetypes bits
    /// @param enable  true adds the bits to the filter, false takes them out
    void switch_type(uint32_t type, bool enable);

    /// Hands the pending line to the callback, empties it, and builds the line of a new frame with
    /// decode_message(), which stays pending unless decode_message() wants it dropped.
    ///
    /// @param id    identifier of the frame
    /// @param len   number of data bytes, 0 to 8
    /// @param data  the data; eight bytes must be readable, whatever @p len
    void print_message(uint32_t id, uint8_t len, const void* data) const;

    /// Prints the pending line, if there is one, and empties it: to the log when that is open, and to
    /// standard output in the line's colour, with an end of line each.
    static void print();

    /// The callback that is registered at the start: does the same as print().
    ///
    /// @param line  not used: the line that is printed is the pending one
    static void print_message_callback(const char* line);

    /// Replaces the function that gets the lines of all decoders of the process.
    ///
    /// It is called for each print_message(), with an empty text when no line is pending, and by the master
    /// for each frame that it decodes under bit 4 of its debug word and for an abort of an SDO transfer. The
    /// line is emptied after it has returned. A callback of one's own replaces standard output and the log;
    /// print(), called in it, writes to both. What is printed in other ways is not handed to it: a line that
    /// the program prints with print(), and reports of errors.
    ///
    /// @param callback  function to call, not null
    static void register_callback(message_callback callback);

    /// Formats by the rules of printf(3) and appends the text to the line. The line holds 300 characters:
    /// what goes beyond is cut.
    ///
    /// @param format  format of printf(3), followed by its arguments; none of them may be get_message()
    [[gnu::format(printf, 1, 2)]] static void add_printf(const char* format, ...);

    /// Appends a text as it stands; what goes beyond 300 characters is cut.
    ///
    /// @param text  text, not get_message()
    static void add_text(const char* text);

    /// Empties the line.
    static void clear_message();

    /// The line as built so far; empty when no line is pending. Valid until the line next changes.
    static const char* get_message();

    /// The foreground colour that the line is printed in: a VT100 colour number, 0 to 7.
    static int get_message_color();

    /// Opens the log: appends to @p filename, which is created if it does not exist, and starts with a
    /// header.
    ///
    /// Each line that is printed from now on is written to the file as well, and flushed. While a log is open
    /// the call changes nothing and prints "LOG is already OPEN!".
    ///
    /// @param filename  name of the log file
    /// @return 0 when a log is open after the call, -1 when the file could not be opened (a message is
    ///         printed)
    static int open_log(const char* filename);

    /// Ends the log with a footer and closes the file.
    ///
    /// @pre a log is open
    static void close_log();

protected:
    /// Room of the line, with the terminating zero.
    static constexpr std::size_t message_size = 301;
    /// Room of the log's file name, with the terminating zero.
    static constexpr std::size_t filename_size = 4096;

    static char m_Message[message_size];       ///< the line being built
    static int m_MessageColor;                 ///< VT100 foreground colour number of the line
    static message_callback m_CallbackFunc;    ///< receives the pending line before a new frame is decoded
    static bool m_isLogOpen;                   ///< a log file is open
    static char m_LogFilename[filename_size];  ///< name of the log file
    inline static std::ofstream m_Outfile;     ///< the log; inline: it outlives decoders with static storage

    uint32_t m_TypeFilter;  ///< set of decoder_messagetypes bits: the kinds that are printed
};

#endif
