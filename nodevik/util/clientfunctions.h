/// @file
/// Builds batches of command records for a plotting client.
///
/// The plotting client draws curves ("tables") from samples that it receives in batches, for example one
/// batch per UDP datagram. A batch is a row of records of 20 bytes each, at most 89 of them. The first byte
/// of a record is its command number and selects the layout of the rest; integers are little-endian, doubles
/// IEEE 754 binary64 in the same order:
///
/// | No | Command               | Bytes                                                               |
/// |----|-----------------------|---------------------------------------------------------------------|
/// | 1  | sample                | 1 table, 4-11 sample (double)                                        |
/// | 2  | name, up to 14 chars  | 1 table, 2-15 name, zero-padded                                      |
/// | 3  | next sample position  |                                                                     |
/// | 4  | colour                | 1 table, 4-7 colour 0xRRGGBB, 8 line width                           |
/// | 5  | range                 | 4-7 number of samples shown                                         |
/// | 6  | reset samples         |                                                                     |
/// | 7  | stop                  | 1 state                                                             |
/// | 8  | sample position       | 4-7 position                                                        |
/// | 9  | stop drawing          | 1 state, 0 or 1                                                     |
/// | 12 | scale                 | 4-7 table (32 bits here), 8-15 scale (double), 16-19 level (signed)  |
/// | 14 | part of a longer name | 1 table, 2 part number, 3 length of the whole, 4-15 twelve characters |
///
/// Bytes that a layout does not name are not written: they keep what an earlier command left there, and the
/// client ignores them.
///
/// @code
/// CClientFunctions batch;
/// batch.resetmessage();
/// batch.addmsg_name(0, "speed");
/// batch.addmsg_data(0, 12.5);
/// batch.addmsg_nextsamplepos();
/// endpoint.client_send(batch.getmessagesize(), reinterpret_cast<char*>(batch.getmessage()));
/// @endcode

#ifndef NODEVIK_UTIL_CLIENTFUNCTIONS_H
#define NODEVIK_UTIL_CLIENTFUNCTIONS_H

#include <cstdint>

#include "nodevik/util/export.h"

/// Longest name, in characters, that fits one record.
constexpr unsigned int MEASURENAME_MAX = 14;

/// @name Colours for CClientFunctions::addmsg_color()
/// The client interprets the values as they stand, the yellow and the brown pair too.
/// @{
constexpr std::uint32_t GRAY = 0x808080;           ///< gray
constexpr std::uint32_t WHITE = 0xFFFFFF;          ///< white
constexpr std::uint32_t RED = 0x800000;            ///< red
constexpr std::uint32_t BRIGHT_RED = 0xFF0000;     ///< bright red
constexpr std::uint32_t GREEN = 0x008000;          ///< green
constexpr std::uint32_t BRIGHT_GREEN = 0x00FF00;   ///< bright green
constexpr std::uint32_t BLUE = 0x000080;           ///< blue
constexpr std::uint32_t BRIGHT_BLUE = 0x0000FF;    ///< bright blue
constexpr std::uint32_t YELLOW = 0x008080;         ///< yellow
constexpr std::uint32_t BRIGHT_YELLOW = 0x00FFFF;  ///< bright yellow
constexpr std::uint32_t PURPLE = 0x800080;         ///< purple
constexpr std::uint32_t BRIGHT_PURPLE = 0xFF00FF;  ///< bright purple
constexpr std::uint32_t BROWN = 0x808000;          ///< brown
constexpr std::uint32_t BRIGHT_BROWN = 0xFFFF00;   ///< bright brown
/// @}

#pragma pack(push, 1)

/// Record 1: a sample of a curve.
struct Ssetdata {
    std::uint8_t commandno;  ///< number of the command
    std::uint8_t tableno;    ///< number of the curve
    std::uint8_t unused[2];  ///< not part of the record
    double sample;           ///< the sample
};

/// Record 2: a curve's name, without terminator when it fills the field.
struct Ssetname {
    std::uint8_t commandno;      ///< number of the command
    std::uint8_t tableno;        ///< number of the curve
    char name[MEASURENAME_MAX];  ///< characters, zero-padded
};

/// Record 4: a curve's colour and line width.
struct Ssetcolor {
    std::uint8_t commandno;  ///< number of the command
    std::uint8_t tableno;    ///< number of the curve
    std::uint8_t unused[2];  ///< not part of the record
    std::uint32_t color;     ///< 0xRRGGBB
    std::uint8_t width;      ///< line width in pixels
};

/// Record 5: how many samples the client shows.
struct Ssetrange {
    std::uint8_t commandno;  ///< number of the command
    std::uint8_t unused[3];  ///< not part of the record
    std::uint32_t range;     ///< number of samples
};

/// Records 7 and 9: a switch.
struct Ssetstate {
    std::uint8_t commandno;  ///< number of the command
    std::uint8_t state;      ///< 0 or 1, or the low 8 bits of a state
};

/// Record 8: where the next sample goes.
struct Ssetsamplepos {
    std::uint8_t commandno;  ///< number of the command
    std::uint8_t unused[3];  ///< not part of the record
    std::uint32_t pos;       ///< position
};

/// Record 12: a curve's scale and level. The table number is 32 bits wide here, unlike everywhere else.
struct Ssetscale {
    std::uint8_t commandno;  ///< number of the command
    std::uint8_t unused[3];  ///< not part of the record
    std::uint32_t tableno;   ///< number of the curve
    double scale;            ///< factor
    std::int32_t level;      ///< level of the zero line
};

/// Record 14: twelve characters of a name that does not fit one record.
struct Ssetlongname {
    std::uint8_t commandno;   ///< number of the command
    std::uint8_t tableno;     ///< number of the curve
    std::uint8_t namepartno;  ///< 0, 1, 2, ...
    std::uint8_t namelength;  ///< length of the whole name, low 8 bits
    char name[12];            ///< characters, zero-padded
};

/// A record as plain bytes.
struct Smessagepos {
    std::uint8_t data[16];  ///< the bytes
};

/// One record of a batch, 20 bytes on the wire.
union ProtocolMessage {
    std::uint8_t bytes[20];      ///< the record as it goes out
    std::uint8_t commandno;      ///< number of the command
    Ssetdata setdata;            ///< record 1
    Ssetname setname;            ///< record 2
    Ssetcolor setcolor;          ///< record 4
    Ssetrange setrange;          ///< record 5
    Ssetstate setstate;          ///< records 7 and 9
    Ssetsamplepos setsamplepos;  ///< record 8
    Ssetscale setscale;          ///< record 12
    Ssetlongname setlongname;    ///< record 14
    Smessagepos messagepos;      ///< the first 16 bytes
};

#pragma pack(pop)

static_assert(sizeof(ProtocolMessage) == 20);

/// A batch of records for the plotting client.
///
/// Every addmsg operation appends one record (a long name several). A batch holds at most 89: one more fails
/// the assertion "messagesize < 89" and ends the process. Call resetmessage() before the first record and
/// after sending.
class NODEVIK_EXPORT CClientFunctions {
public:
    /// Adds a sample to a curve.
    ///
    /// @param no  the curve's table number, low 8 bits
    /// @param d   the sample
    void addmsg_data(int no, double d);

    /// Names a curve. Names longer than #MEASURENAME_MAX go out in parts of twelve characters.
    ///
    /// @param no    the curve's table number, low 8 bits
    /// @param name  zero-terminated text
    void addmsg_name(int no, const char* name);

    /// Moves on to the next sample position.
    void addmsg_nextsamplepos();

    /// Chooses a curve's colour and line width.
    ///
    /// @param no     the curve's table number, low 8 bits
    /// @param color  0xRRGGBB, for example one of the constants above
    /// @param w      line width in pixels
    void addmsg_color(int no, int color, unsigned char w);

    /// Chooses how many samples the client shows.
    void addmsg_range(int r);

    /// Forgets all samples. Scales, names and colours of the curves stay.
    void addmsg_resetsamples();

    /// Stops (non-zero) or continues (0) the client. @param state low 8 bits
    void addmsg_stop(int state);

    /// Moves to the sample position @p p.
    void addmsg_samplepos(int p);

    /// Stops or continues the drawing; samples are still taken.
    void addmsg_stopdraw(bool state);

    /// Scales a curve.
    ///
    /// @param n  the curve's table number, all 32 bits
    /// @param s  factor that its samples are multiplied with
    /// @param l  level that the curve's zero is drawn at
    void addmsg_scale(int n, double s, int l);

    /// Appends a record. Ends the process through the assertion "messagesize < 89" when 89 records stand.
    void addmessage(ProtocolMessage& m);

    /// Empties the batch.
    void resetmessage();

    /// The batch's bytes: getmessagesize() of them are to be sent.
    unsigned char* getmessage();

    /// Number of bytes to send: 20 per record.
    int getmessagesize();

    /// Size of the whole buffer in bytes: 1800.
    int getmessagebuffersize();

private:
    ProtocolMessage protocolMessage{};  // the working record, see the note on unnamed bytes above
    ProtocolMessage message[90]{};
    int messagesize = 0;
};

#endif
