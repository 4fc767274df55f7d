/// @file
/// A table of all PDOs by number: communication parameters, dictionary mappings and variable mappings.
///
/// A CANopen object dictionary (CiA 301) describes up to 512 TPDOs and 512 RPDOs, each by a communication
/// parameter record (COB-ID, transmission type, times), a mapping record (which objects make up its bytes)
/// and, here, the variables of the application that are tied to its bytes. A CObjectDictionary holds all of
/// them in fixed arrays. It stands beside the PDO class: the CANopen master works with PDO objects and does
/// not use this table.
///
/// The operations that map variables take a COB-ID; those that move data take a PDO number. The number of a
/// COB-ID is cobid_to_pdonum(), which puts the function code into bits 7 and 8:
///
///     COB-ID  0x181 + i  ->  TPDO 0x081 + i       COB-ID  0x281 + i  ->  TPDO 0x101 + i
///     COB-ID  0x201 + i  ->  RPDO 0x101 + i       COB-ID  0x301 + i  ->  RPDO 0x181 + i
///
/// The COB-IDs that the table starts with come from tpdonum_to_cobid() and rpdonum_to_cobid(), which count
/// from 0. The two directions are not each other's inverse.
///
/// The object takes about 1.3 MB: make it static or put it on the heap, and only once. It is used from one
/// thread.

#ifndef NODEVIK_OBJECTDICTIONARY_H
#define NODEVIK_OBJECTDICTIONARY_H

#include <cstdint>

#include "nodevik/pdo.h"
#include "nodevik/util/export.h"

/// How a PDO is transmitted (CiA 301, objects 1400h and 1800h onwards).
struct pdo_communication_parameters {
    unsigned int cobid = 0;               ///< COB-ID; bit 31 set: the PDO is not valid
    unsigned int event_timer = 0;         ///< event timer, in milliseconds
    unsigned int inhibit_time = 0;        ///< inhibit time, in 100 microseconds
    unsigned char transmission_type = 0;  ///< transmission type
    unsigned char SYNC_start_value = 0;   ///< SYNC counter value to start at
};

/// Which objects make up a PDO's bytes (CiA 301, objects 1600h and 1A00h onwards).
struct pdo_mappings {
    /// One mapped object.
    struct entry {
        std::uint16_t index = 0;           ///< object index
        unsigned char subindex = 0;        ///< object subindex
        unsigned char length_in_bits = 0;  ///< its length in bits
    };

    unsigned int num_of_mappings = 0;  ///< number of entries used
    entry mappings[64];                ///< the objects
};

/// A PDO's data and the variables that are tied to it.
///
/// Bit mappings work on the 8-byte word of this record that bits 3 to 5 of their position select, so the
/// order of the fields matters: word 0 is pdodata, word 1 old_pdodata, the next ones the counts and the first
/// entries.
struct variable_mappings {
    /// One mapped variable.
    struct entry {
        void* var_address = nullptr;  ///< the application's variable
        unsigned char pos = 0;        ///< first byte of a byte mapping, bit number (0 to 63) of a bit mapping
        unsigned char len = 0;        ///< size of the variable in bytes
        unsigned char type = 0;       ///< a PDO::maptype
    };

    std::uint64_t pdodata = 0;         ///< the 8 data bytes
    std::uint64_t old_pdodata = 0;     ///< the 8 data bytes as they were
    unsigned int length = 0;           ///< number of data bytes
    unsigned int pdo_updated = 0;      ///< receptions
    unsigned int pdo_active = 0;       ///< whether the PDO is in use
    unsigned int num_of_mappings = 0;  ///< number of entries used
    entry mappings[64];                ///< the variables
};

/// All that is kept about one PDO.
struct pdo_information {
    pdo_communication_parameters commparam;  ///< how it is transmitted
    pdo_mappings pdomap;                     ///< which objects make it up
    variable_mappings varmap;                ///< which variables are tied to it
};

/// A table of 512 TPDOs and 512 RPDOs with their variables, and a first generic access to objects.
class NODEVIK_EXPORT CObjectDictionary {
public:
    /// The mapping types are those of PDO.
    using maptype = PDO::maptype;

    pdo_information tpdoinf[512];  ///< the TPDOs by number
    pdo_information rpdoinf[512];  ///< the RPDOs by number
    bool read = false;             ///< direction of the current object access: true for a read
    unsigned int od = 0;           ///< the value being read or written
    void* obaddress = nullptr;     ///< address of the object being accessed
    unsigned char obsize = 0;      ///< size of the object being accessed
    unsigned int ob_1005_COBID_SYNC_message = 0x80;  ///< object 0x1005: COB-ID of the SYNC message

    /// Constructs a table of PDOs that are all not valid and have their default COB-IDs and no mappings.
    CObjectDictionary();

    CObjectDictionary(const CObjectDictionary&) = delete;
    CObjectDictionary& operator=(const CObjectDictionary&) = delete;
    ~CObjectDictionary() = default;

    /// @name Numbers and COB-IDs
    /// The formulas give the default COB-IDs of CiA 301 for the first PDO of nodes 1 to 127 (numbers 0 to
    /// 126) and fold bits 7 and 8 of the number into bits 8 and 9 of the COB-ID. They are not one-to-one:
    /// number 127 gives 0x200 for a TPDO, and number 128 gives 0x181 again.
    /// @{

    /// Default COB-ID of a TPDO: (( @p num & 0x7F) + 0x181) | (( @p num * 2) & 0x300).
    /// @param num  PDO number, 0 to 511
    unsigned int tpdonum_to_cobid(unsigned int num) {
        return ((num & 0x7FU) + 0x181U) | ((num * 2U) & 0x300U);
    }

    /// Default COB-ID of an RPDO: (( @p num & 0x7F) + 0x201) | (( @p num * 2) & 0x300).
    /// @param num  PDO number, 0 to 511
    unsigned int rpdonum_to_cobid(unsigned int num) {
        return ((num & 0x7FU) + 0x201U) | ((num * 2U) & 0x300U);
    }

    /// Number of a COB-ID's record: ( @p cid & 0x7F) | (( @p cid >> 1) & 0x180), always 0 to 511.
    /// @param cid  COB-ID
    unsigned int cobid_to_pdonum(unsigned int cid) { return (cid & 0x7FU) | ((cid >> 1) & 0x180U); }

    /// Tells whether a COB-ID has a record: one of 0x181 to 0x3FF has.
    ///
    /// Any other prints the line "get_pdo_info: Wrong PDO cobid".
    ///
    /// @param cid   COB-ID
    /// @param pinf  not used and not written through: the record is kept to the dictionary
    /// @retval 0   it has a record
    /// @retval -1  it has none
    int get_pdo_info(unsigned int cid, pdo_information* pinf);

    /// @}
    /// @name Variable mapping
    /// As in PDO, into the record cobid_to_pdonum() of tpdoinf when @p cobid has bit value 0x80, of rpdoinf
    /// when not. A COB-ID without a record ends the call after the line of get_pdo_info().
    /// @{

    /// Maps a variable to whole bytes. The record's length is not raised.
    ///
    /// Checked in this order, each with its message on standard output: an address below 10000 and a type
    /// that is none, a bit type or no type end the process with status 1; with 64 mappings present, or bytes
    /// that do not fit into the PDO, nothing is mapped; an overlap with an earlier mapping's `pos` to `pos` +
    /// `len` - 1 (of a bit mapping, too) ends the process with status 1.
    ///
    /// @param cobid  COB-ID, 0x181 to 0x3FF
    /// @param pos    first byte, 0 to 7
    /// @param t      PDO::char1 to PDO::ulonglong8
    /// @param d      the variable, of the type's size; it need not be aligned
    void mapref(unsigned int cobid, unsigned int pos, maptype t, void* d);

    /// Maps a variable to one bit. Neither its address nor an overlap is checked.
    ///
    /// A size other than 1, 2 and 4 ends the process with status 1. With 64 mappings present, or a bit
    /// outside of the PDO, a message is printed and nothing mapped.
    ///
    /// @param cobid  COB-ID, 0x181 to 0x3FF
    /// @param pos    bit, 0 to 63. It is stored whole: bits 0 to 7 are those of the first data byte, and from
    ///               8 on the transfers work on the further words of the record, see variable_mappings
    /// @param size   size of the variable in bytes: 1, 2 or 4
    /// @param d      the variable; it need not be aligned
    void mapbitref(unsigned int cobid, unsigned int pos, unsigned int size, void* d);

    /// @}
    /// @name Variable mapping to whole bytes by the variable's type
    /// @{

    /// Maps a variable to whole bytes by its own type, as the forms of PDO do.
    /// @param cobid  COB-ID, 0x181 to 0x3FF
    /// @param pos    first byte, 0 to 7
    /// @param v      the variable
    /// @see mapref
    void mapcopy(unsigned int cobid, unsigned int pos, char& v) { mapref(cobid, pos, PDO::char1, &v); }
    void mapcopy(unsigned int cobid, unsigned int pos, unsigned char& v) {
        mapref(cobid, pos, PDO::uchar1, &v);
    }
    void mapcopy(unsigned int cobid, unsigned int pos, short& v) { mapref(cobid, pos, PDO::short2, &v); }
    void mapcopy(unsigned int cobid, unsigned int pos, unsigned short& v) {
        mapref(cobid, pos, PDO::ushort2, &v);
    }
    void mapcopy(unsigned int cobid, unsigned int pos, int& v) { mapref(cobid, pos, PDO::int4, &v); }
    void mapcopy(unsigned int cobid, unsigned int pos, unsigned int& v) {
        mapref(cobid, pos, PDO::uint4, &v);
    }
    void mapcopy(unsigned int cobid, unsigned int pos, char* v) { mapref(cobid, pos, PDO::char1, v); }
    void mapcopy(unsigned int cobid, unsigned int pos, unsigned char* v) {
        mapref(cobid, pos, PDO::uchar1, v);
    }
    void mapcopy(unsigned int cobid, unsigned int pos, short* v) { mapref(cobid, pos, PDO::short2, v); }
    void mapcopy(unsigned int cobid, unsigned int pos, unsigned short* v) {
        mapref(cobid, pos, PDO::ushort2, v);
    }
    void mapcopy(unsigned int cobid, unsigned int pos, int* v) { mapref(cobid, pos, PDO::int4, v); }
    void mapcopy(unsigned int cobid, unsigned int pos, unsigned int* v) { mapref(cobid, pos, PDO::uint4, v); }

    /// @}
    /// @name Variable mapping to one bit by the variable's type
    /// @{

    /// Maps a variable to one bit by its own type, as the forms of PDO do.
    /// @param cobid  COB-ID, 0x181 to 0x3FF
    /// @param pos    bit, 0 to 63
    /// @param v      the variable
    /// @see mapbitref
    void mapbitcopy(unsigned int cobid, unsigned int pos, bool& v) { mapbitref(cobid, pos, sizeof v, &v); }
    void mapbitcopy(unsigned int cobid, unsigned int pos, char& v) { mapbitref(cobid, pos, sizeof v, &v); }
    void mapbitcopy(unsigned int cobid, unsigned int pos, unsigned char& v) {
        mapbitref(cobid, pos, sizeof v, &v);
    }
    void mapbitcopy(unsigned int cobid, unsigned int pos, short& v) { mapbitref(cobid, pos, sizeof v, &v); }
    void mapbitcopy(unsigned int cobid, unsigned int pos, unsigned short& v) {
        mapbitref(cobid, pos, sizeof v, &v);
    }
    void mapbitcopy(unsigned int cobid, unsigned int pos, int& v) { mapbitref(cobid, pos, sizeof v, &v); }
    void mapbitcopy(unsigned int cobid, unsigned int pos, unsigned int& v) {
        mapbitref(cobid, pos, sizeof v, &v);
    }
    void mapbitcopy(unsigned int cobid, unsigned int pos, bool* v) { mapbitref(cobid, pos, sizeof *v, v); }
    void mapbitcopy(unsigned int cobid, unsigned int pos, char* v) { mapbitref(cobid, pos, sizeof *v, v); }
    void mapbitcopy(unsigned int cobid, unsigned int pos, unsigned char* v) {
        mapbitref(cobid, pos, sizeof *v, v);
    }
    void mapbitcopy(unsigned int cobid, unsigned int pos, short* v) { mapbitref(cobid, pos, sizeof *v, v); }
    void mapbitcopy(unsigned int cobid, unsigned int pos, unsigned short* v) {
        mapbitref(cobid, pos, sizeof *v, v);
    }
    void mapbitcopy(unsigned int cobid, unsigned int pos, int* v) { mapbitref(cobid, pos, sizeof *v, v); }
    void mapbitcopy(unsigned int cobid, unsigned int pos, unsigned int* v) {
        mapbitref(cobid, pos, sizeof *v, v);
    }

    /// @}
    /// @name Data transfer
    /// Byte mappings move the first bytes of the data, whatever their position; bit mappings work on bit
    /// position mod 8 of the record's word that bits 3 to 5 of the position select. A variable address below
    /// 10000 is reported on standard output and its transfer left out; an invalid type ends the process with
    /// status 1.
    /// @{

    /// Sets the mapped variables of a TPDO from its data.
    ///
    /// Variables of 8 bytes are set from the data of the RPDO of the same number.
    ///
    /// @param id  PDO number, 0 to 511; any other fails an assertion
    void create_tpdo_data(unsigned int id);

    /// Fills the data of an RPDO from its mapped variables.
    /// @param id  PDO number, 0 to 511; any other fails an assertion
    void create_rpdo_data(unsigned int id);

    /// Tells whether the data of an RPDO differ from the old data; changes nothing.
    /// @param id  PDO number, 0 to 511; any other fails an assertion
    bool rpdo_changed(unsigned int id) const;

    /// @}
    /// @name Object access
    /// @{

    /// Reads an object: sets @ref read, calls gobject(), and tells what @ref od holds then.
    /// @param index      object index
    /// @param subindex   object subindex
    /// @param[out] data  the value of @ref od, also when the access has failed
    /// @return the result of gobject()
    int read_object(unsigned int index, unsigned int subindex, int& data);

    /// Writes an object: clears @ref read, puts the value into @ref od and calls gobject().
    /// @param index     object index
    /// @param subindex  object subindex
    /// @param data      the value
    /// @return the result of gobject()
    int write_object(unsigned int index, unsigned int subindex, int data);

    /// Dispatches an access by index and subindex. No object is served: it prints the line "Unsupported
    /// Index".
    /// @param index     object index
    /// @param subindex  object subindex
    /// @return -1
    int gobject(unsigned int index, unsigned int subindex);

    /// @}

private:
    NODEVIK_LOCAL pdo_information* find_record(unsigned int cid);
};

#endif
