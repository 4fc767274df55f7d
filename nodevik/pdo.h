/// @file
/// Process data objects: the master's image of a PDO and the variables that are mapped into it.
///
/// CANopen moves process data in PDOs: single CAN frames of up to 8 data bytes and no protocol around them,
/// whose meaning both sides agree on beforehand. The direction words are the node's: a TPDO is transmitted by
/// a node and received by the master, an RPDO is sent by the master and received by a node. By default (the
/// pre-defined connection set of CiA 301) the COB-ID is a function code plus the node number 1 to 127:
///
///     TPDO 1 to 4   0x180  0x280  0x380  0x480    (bit value 0x80 is set)
///     RPDO 1 to 4   0x200  0x300  0x400  0x500
///
/// A PDO object holds the 8 bytes and a table that ties parts of them to variables of the application:
///
///     unsigned short speed = 0;
///     bool lamp = false;
///     PDO tpdo(0x181);
///     tpdo.mapcopy(0, speed);      // bytes 0 and 1
///     tpdo.mapbitcopy(16, lamp);   // bit 0 of byte 2
///     master.add_tpdo(tpdo);       // from now on each received frame 0x181 sets speed and lamp
///
/// For a received frame the master calls create_tpdo(): bytes to variables. Before it sends one, it calls
/// create_rpdo(): variables to bytes. Values of several bytes lie in the frame as in the machine's memory,
/// the least significant byte first on CANopen machines.
///
/// Beside the variables a PDO keeps what the node is to be told about it: the transmission type and a list of
/// object dictionary entries, which the SDO operations of the master save to a node and load from it.
///
/// No memory is allocated, and nothing is locked: a PDO and its variables belong to one thread.

#ifndef NODEVIK_PDO_H
#define NODEVIK_PDO_H

#include <cstdint>

#include "nodevik/util/export.h"

/// The dictionary side of a PDO: what is saved to and loaded from the node.
struct PDO_object_information {
    int transmission_type = 0;  ///< CiA 301, object 1800h, subindex 2: e.g. 1 for "with every SYNC"
    int mappingcount = 0;       ///< number of entries used in pdo_mappings, 0 to 64, or what a node told
    /// Mapping words: index in bits 16 to 31, subindex in 8 to 15, length in bits in 0 to 7.
    int pdo_mappings[64] = {};
};

/// A process data object with up to 64 mapped variables.
///
/// The mapped variables belong to the application and have to live as long as the PDO is in use.
class NODEVIK_EXPORT PDO {
public:
    /// How a variable is tied to the data. The bit types differ in the variable's width only: each takes one
    /// bit.
    enum maptype : unsigned int {
        none = 0,        ///< invalid
        bit1 = 1,        ///< one bit, variable of 1 byte
        bit2 = 2,        ///< one bit, variable of 2 bytes
        bit4 = 3,        ///< one bit, variable of 4 bytes
        char1 = 4,       ///< 1 byte, signed
        short2 = 5,      ///< 2 bytes, signed
        int4 = 6,        ///< 4 bytes, signed
        uchar1 = 7,      ///< 1 byte, unsigned
        ushort2 = 8,     ///< 2 bytes, unsigned
        uint4 = 9,       ///< 4 bytes, unsigned
        longlong8 = 10,  ///< 8 bytes, signed
        ulonglong8 = 11  ///< 8 bytes, unsigned
    };

    /// One entry of the mapping table.
    struct mapping {
        void* var_address = nullptr;           ///< the application's variable
        unsigned char* pdo_address = nullptr;  ///< first byte of PDOdata concerned
        unsigned char pos = 0;  ///< byte types: first byte, 0 to 7; bit types: bit within the byte, 0 to 7
        unsigned char len = 0;  ///< size of the variable in bytes
        maptype type = none;    ///< how it is transferred
    };

    unsigned int PDO_updated = 0;      ///< receptions since the master last cleared it
    PDO_object_information obj_info;   ///< what the node is told
    unsigned int cobid = 0;            ///< COB-ID
    unsigned int length = 0;           ///< number of data bytes, 0 to 8
    unsigned char PDOdata[8] = {};     ///< the current data
    unsigned char oldPDOdata[8] = {};  ///< the data as last sent or received
    int mapCounter = 0;                ///< number of entries used in PDOmap, 0 to 64
    mapping PDOmap[64];                ///< the mapped variables

    /// @name Construction and identity
    /// @{

    /// Constructs a PDO with all fields zero. It has no valid COB-ID before init() or set_cobid().
    PDO() = default;

    /// Constructs a PDO as by init().
    /// @param cid  COB-ID, 0x181 to 0x57F; any other ends the process, see init()
    PDO(unsigned int cid);

    /// Copies everything; the copy's mappings point into the copy's own data and at the same variables.
    /// @param other  the PDO to copy
    PDO(const PDO& other);

    /// Copies everything; this PDO's mappings then point into its own data and at the same variables.
    /// @param other  the PDO to copy
    /// @return this PDO
    PDO& operator=(const PDO& other);

    ~PDO() = default;

    /// Starts over: no mappings, no dictionary entries, no data, length 0, then a new COB-ID.
    ///
    /// The transmission type becomes 1 for the TPDO function codes (bit value 0x80 of @p cid set), otherwise
    /// 0. A COB-ID out of range prints "Error: PDO::PDO COBID %#x out of range\n" and ends the process with
    /// status 1.
    ///
    /// @param cid  COB-ID, 0x181 to 0x57F
    void init(unsigned int cid);

    /// Changes the COB-ID and leaves all else, the transmission type too, as it is.
    ///
    /// A COB-ID out of range prints "Error: PDO::set_cobid  ID 0x%x out of range\n" and ends the process with
    /// status 1.
    ///
    /// @param id  COB-ID, 0x181 to 0x57F
    void set_cobid(unsigned int id);

    /// The COB-ID.
    unsigned int get_cobid() const { return cobid; }

    /// Sets the number of data bytes.
    ///
    /// Any other value prints "Error: PDO::set_len length %i out of range\n" and ends the process with
    /// status 1.
    ///
    /// @param len  0 to 8
    void set_len(int len);

    /// The number of data bytes.
    unsigned int get_len() const { return length; }

    /// Address of a data byte, unchecked.
    /// @param pos  0 to 7
    unsigned char* get_address(int pos) { return PDOdata + pos; }

    /// Sets the transmission type that the node is told.
    /// @param s  CiA 301, object 1800h, subindex 2
    void set_transmission_type(unsigned char s) { obj_info.transmission_type = s; }

    /// @}
    /// @name Whole data
    /// @{

    /// Sets all 8 bytes, and the length to 8.
    /// @param v  the bytes as they lie in memory
    void set_value(unsigned long long v);

    /// All 8 bytes, as they lie in memory.
    unsigned long long get_value() const;

    /// Tells all 8 bytes.
    /// @param[out] v  the bytes as they lie in memory
    void get_value(unsigned long long& v) const;

    /// Copies all 8 bytes out.
    /// @param[out] data  room for 8 bytes
    void copy_pdo_data(unsigned char* data) const;

    /// @}
    /// @name Parts of the data
    /// None of these changes the length. A position out of range is printed with the COB-ID, in the form
    /// "Error: PDO::setbyte8 Position out of range, COBID=%#x position=%i\n" under the operation's own name
    /// without its underscore; then a setter does nothing and a getter returns 0.
    /// @{

    /// Sets a byte.
    /// @param pos  0 to 7
    /// @param d    value
    void set_byte8(int pos, unsigned char d);
    /// Gets a byte.
    /// @param pos  0 to 7
    unsigned int get_byte8(int pos) const;
    /// Sets the bytes @p pos and @p pos + 1.
    /// @param pos  0 to 6
    /// @param d    value
    void set_byte16(int pos, unsigned short d);
    /// Gets the bytes @p pos and @p pos + 1 as one value.
    /// @param pos  0 to 6
    unsigned int get_byte16(int pos) const;
    /// Sets the bytes @p pos to @p pos + 3.
    /// @param pos  0 to 4
    /// @param d    value
    void set_byte32(int pos, unsigned int d);
    /// Gets the bytes @p pos to @p pos + 3 as one value.
    /// @param pos  0 to 4
    unsigned int get_byte32(int pos) const;
    /// Tells whether a bit is set.
    /// @param pos  0 to 63: bit @p pos mod 8 of byte @p pos / 8
    bool get_bit(int pos) const;
    /// Sets a bit.
    /// @param pos  0 to 63
    void set_bit(int pos);
    /// Clears a bit.
    /// @param pos  0 to 63
    void clear_bit(int pos);
    /// Inverts a bit.
    /// @param pos  0 to 63
    void neg_bit(int pos);

    /// A data byte, to read or write.
    ///
    /// A position out of range yields byte 0 after "Error: COBID=%#x PDO::operator[] position < 0\n" or
    /// "Error: COBID=%#x PDO::operator[] position > 7\n".
    ///
    /// @param pos  0 to 7
    unsigned char& operator[](int pos);

    /// @}
    /// @name Variable mapping
    /// Mappings are only added; init() drops them all.
    /// @{

    /// Maps a variable to one or more whole bytes, and raises the length to cover them.
    ///
    /// Checked in this order, each with its message on standard output:
    /// 1. an address below 10000 (a small number where an address was meant) ends the process with status 1;
    /// 2. so does a type that is none, a bit type or no type at all;
    /// 3. with 64 mappings present, nothing is mapped;
    /// 4. nor when the bytes do not fit into the PDO;
    /// 5. bytes that overlap an earlier mapping's `pos` to `pos` + `len` - 1 end the process with status 1.
    ///    Bit mappings take part in that with the values they have there, a bit number and a variable's size.
    ///
    /// @param pos  first byte, 0 to 7
    /// @param t    char1 to ulonglong8
    /// @param d    the variable, of the type's size; it need not be aligned
    void mapref(unsigned int pos, maptype t, void* d);

    /// Maps a variable to one bit, and raises the length to cover its byte.
    ///
    /// Neither the address nor an overlap is checked: bits of one byte, or of a mapped byte, can be mapped
    /// freely. A size other than 1, 2 and 4 ends the process with status 1. With 64 mappings present, or a
    /// bit outside of the PDO, a message is printed and nothing mapped.
    ///
    /// @param pos   bit, 0 to 63: bit @p pos mod 8 of byte @p pos / 8
    /// @param size  size of the variable in bytes: 1, 2 or 4
    /// @param d     the variable; it need not be aligned
    void mapbitref(unsigned int pos, unsigned int size, void* d);

    /// @}
    /// @name Mapping by a variable's own type
    /// The type picks the maptype of mapref(), or the size for mapbitref(); the form with a reference and the
    /// one with an address do the same. The 8-byte types are mapped through mapref().
    /// @{

    /// Maps a variable to whole bytes.
    /// @param pos  first byte, 0 to 7
    /// @param v    the variable
    /// @see mapref
    void mapcopy(unsigned int pos, char& v) { mapref(pos, char1, &v); }
    void mapcopy(unsigned int pos, unsigned char& v) { mapref(pos, uchar1, &v); }
    void mapcopy(unsigned int pos, short& v) { mapref(pos, short2, &v); }
    void mapcopy(unsigned int pos, unsigned short& v) { mapref(pos, ushort2, &v); }
    void mapcopy(unsigned int pos, int& v) { mapref(pos, int4, &v); }
    void mapcopy(unsigned int pos, unsigned int& v) { mapref(pos, uint4, &v); }
    void mapcopy(unsigned int pos, char* v) { mapref(pos, char1, v); }
    void mapcopy(unsigned int pos, unsigned char* v) { mapref(pos, uchar1, v); }
    void mapcopy(unsigned int pos, short* v) { mapref(pos, short2, v); }
    void mapcopy(unsigned int pos, unsigned short* v) { mapref(pos, ushort2, v); }
    void mapcopy(unsigned int pos, int* v) { mapref(pos, int4, v); }
    void mapcopy(unsigned int pos, unsigned int* v) { mapref(pos, uint4, v); }

    /// Maps a variable to one bit. On reception it becomes 0 or 1; for sending its lowest bit counts.
    /// @param pos  bit, 0 to 63
    /// @param v    the variable
    /// @see mapbitref
    void mapbitcopy(unsigned int pos, bool& v) { mapbitref(pos, sizeof v, &v); }
    void mapbitcopy(unsigned int pos, char& v) { mapbitref(pos, sizeof v, &v); }
    void mapbitcopy(unsigned int pos, unsigned char& v) { mapbitref(pos, sizeof v, &v); }
    void mapbitcopy(unsigned int pos, short& v) { mapbitref(pos, sizeof v, &v); }
    void mapbitcopy(unsigned int pos, unsigned short& v) { mapbitref(pos, sizeof v, &v); }
    void mapbitcopy(unsigned int pos, int& v) { mapbitref(pos, sizeof v, &v); }
    void mapbitcopy(unsigned int pos, unsigned int& v) { mapbitref(pos, sizeof v, &v); }
    void mapbitcopy(unsigned int pos, bool* v) { mapbitref(pos, sizeof *v, v); }
    void mapbitcopy(unsigned int pos, char* v) { mapbitref(pos, sizeof *v, v); }
    void mapbitcopy(unsigned int pos, unsigned char* v) { mapbitref(pos, sizeof *v, v); }
    void mapbitcopy(unsigned int pos, short* v) { mapbitref(pos, sizeof *v, v); }
    void mapbitcopy(unsigned int pos, unsigned short* v) { mapbitref(pos, sizeof *v, v); }
    void mapbitcopy(unsigned int pos, int* v) { mapbitref(pos, sizeof *v, v); }
    void mapbitcopy(unsigned int pos, unsigned int* v) { mapbitref(pos, sizeof *v, v); }

    /// @}
    /// @name Data transfer
    /// @{

    /// Takes a received frame: its bytes become the data, old and new, and every mapped variable is set from
    /// them.
    ///
    /// A mapping with an address below 10000 or an invalid type, which mapref() does not let in, is reported
    /// on standard output and ends the process with status 1.
    ///
    /// @param data  the received bytes; 8 are read, whatever the frame's length
    void create_tpdo(void* data);

    /// The same for bytes that may not be changed; neither form changes them.
    void create_tpdo(const void* data);

    /// Fills the data from the mapped variables; bytes and bits that none is mapped to keep their values.
    ///
    /// Faulty mappings end the process as in create_tpdo().
    void create_rpdo();

    /// Tells whether the data differ from those last sent or received, and takes them as sent.
    /// @return true once per change
    bool pdo_changed();

    /// @}
    /// @name Dictionary entries and print-outs
    /// @{

    /// Appends a dictionary entry, as the number 1 when any of the three arguments is non-zero, else as 0.
    ///
    /// The entry is that truth value, not the mapping word: nodes are set up with it as it stands. With 64
    /// entries present, or a count out of range that a node told, the call is ignored.
    ///
    /// @param index     object index
    /// @param subindex  object subindex
    /// @param len       length in bits
    void map_object(unsigned short index, unsigned char subindex, unsigned char len);

    /// Prints the dictionary entries, a line each and never more than 64, and a line with the transmission
    /// type.
    void print_mappings() const;

    /// Prints a line with COB-ID, address of the data and the 8 data bytes.
    void print() const;

    /// @}
};

#endif
