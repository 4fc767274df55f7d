#include "nodevik/pdo.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <span>

#include "nodevik/pdomapping.h"

using pdo_mapping::data_bits;
using pdo_mapping::data_bytes;
using pdo_mapping::load;

namespace {

constexpr int max_mappings = pdo_mapping::max_entries;
constexpr unsigned int first_cobid = 0x181;
constexpr unsigned int last_cobid = 0x57F;
constexpr unsigned int tpdo_bit = 0x80;

bool is_pdo_cobid(unsigned int cid) {
    return cid >= first_cobid && cid <= last_cobid;
}

// Ends the process when a mapping's variable cannot be reached.
void check_address(const PDO::mapping& m, const char* line) {
    if (pdo_mapping::is_suspicious(m.var_address)) {
        pdo_mapping::report_address(line);
        std::exit(1);
    }
}

// Whether pos is within 0 to last; reports it in the name of the operation when it is not.
bool check_position(const char* operation, unsigned int cobid, int pos, int last) {
    if (pos >= 0 && pos <= last) {
        return true;
    }
    std::printf("Error: PDO::%s Position out of range, COBID=%#x position=%i\n", operation, cobid, pos);
    return false;
}

unsigned int bit_mask(int pos) {
    return 1U << (pos % 8);
}

}  // namespace

PDO::PDO(unsigned int cid) {
    init(cid);
}

PDO::PDO(const PDO& other) {
    *this = other;
}

PDO& PDO::operator=(const PDO& other) {
    if (this == &other) {
        return *this;
    }
    PDO_updated = other.PDO_updated;
    obj_info = other.obj_info;
    cobid = other.cobid;
    length = other.length;
    std::memcpy(PDOdata, other.PDOdata, sizeof PDOdata);
    std::memcpy(oldPDOdata, other.oldPDOdata, sizeof oldPDOdata);
    mapCounter = other.mapCounter;
    for (int i = 0; i < mapCounter; ++i) {
        PDOmap[i] = other.PDOmap[i];
        PDOmap[i].pdo_address = PDOdata + (other.PDOmap[i].pdo_address - other.PDOdata);
    }
    return *this;
}

void PDO::init(unsigned int cid) {
    mapCounter = 0;
    length = 0;
    obj_info.mappingcount = 0;
    std::memset(PDOdata, 0, sizeof PDOdata);
    std::memset(oldPDOdata, 0, sizeof oldPDOdata);
    PDO_updated = 0;
    if (!is_pdo_cobid(cid)) {
        std::printf("Error: PDO::PDO COBID %#x out of range\n", cid);
        std::exit(1);
    }
    cobid = cid;
    obj_info.transmission_type = (cid & tpdo_bit) != 0 ? 1 : 0;
}

void PDO::set_cobid(unsigned int id) {
    if (!is_pdo_cobid(id)) {
        std::printf("Error: PDO::set_cobid  ID 0x%x out of range\n", id);
        std::exit(1);
    }
    cobid = id;
}

void PDO::set_len(int len) {
    if (len < 0 || len > static_cast<int>(data_bytes)) {
        std::printf("Error: PDO::set_len length %i out of range\n", len);
        std::exit(1);
    }
    length = static_cast<unsigned int>(len);
}

void PDO::set_value(unsigned long long v) {
    std::memcpy(PDOdata, &v, sizeof PDOdata);
    length = data_bytes;
}

unsigned long long PDO::get_value() const {
    return load<unsigned long long>(PDOdata);
}

void PDO::get_value(unsigned long long& v) const {
    v = get_value();
}

void PDO::copy_pdo_data(unsigned char* data) const {
    std::memcpy(data, PDOdata, sizeof PDOdata);
}

void PDO::set_byte8(int pos, unsigned char d) {
    if (check_position("setbyte8", cobid, pos, 7)) {
        PDOdata[pos] = d;
    }
}

unsigned int PDO::get_byte8(int pos) const {
    return check_position("getbyte8", cobid, pos, 7) ? PDOdata[pos] : 0;
}

void PDO::set_byte16(int pos, unsigned short d) {
    if (check_position("setbyte16", cobid, pos, 6)) {
        std::memcpy(PDOdata + pos, &d, 2);
    }
}

unsigned int PDO::get_byte16(int pos) const {
    return check_position("getbyte16", cobid, pos, 6) ? load<std::uint16_t>(PDOdata + pos) : 0;
}

void PDO::set_byte32(int pos, unsigned int d) {
    if (check_position("setbyte32", cobid, pos, 4)) {
        std::memcpy(PDOdata + pos, &d, 4);
    }
}

unsigned int PDO::get_byte32(int pos) const {
    return check_position("getbyte32", cobid, pos, 4) ? load<std::uint32_t>(PDOdata + pos) : 0;
}

bool PDO::get_bit(int pos) const {
    return check_position("getbit", cobid, pos, 63) && (PDOdata[pos / 8] & bit_mask(pos)) != 0;
}

void PDO::set_bit(int pos) {
    if (check_position("setbit", cobid, pos, 63)) {
        PDOdata[pos / 8] = static_cast<unsigned char>(PDOdata[pos / 8] | bit_mask(pos));
    }
}

void PDO::clear_bit(int pos) {
    if (check_position("clearbit", cobid, pos, 63)) {
        PDOdata[pos / 8] = static_cast<unsigned char>(PDOdata[pos / 8] & ~bit_mask(pos));
    }
}

void PDO::neg_bit(int pos) {
    if (check_position("negbit", cobid, pos, 63)) {
        PDOdata[pos / 8] = static_cast<unsigned char>(PDOdata[pos / 8] ^ bit_mask(pos));
    }
}

unsigned char& PDO::operator[](int pos) {
    if (pos < 0) {
        std::printf("Error: COBID=%#x PDO::operator[] position < 0\n", get_cobid());
        return PDOdata[0];
    }
    if (pos >= static_cast<int>(data_bytes)) {
        std::printf("Error: COBID=%#x PDO::operator[] position > 7\n", get_cobid());
        return PDOdata[0];
    }
    return PDOdata[pos];
}

void PDO::mapref(unsigned int pos, maptype t, void* d) {
    pdo_mapping::require_address(d);
    const unsigned int size = pdo_mapping::byte_size(t);
    if (mapCounter >= max_mappings) {
        std::printf("PDO::mapref COBID=0%#x Maximum number of mappings done\n", get_cobid());
        return;
    }
    if (pos > data_bytes - size) {
        std::printf("PDO::mapref COBID=0%#x Mapping not inside of the PDO\n", get_cobid());
        return;
    }
    for (int i = 0; i < mapCounter; ++i) {
        pdo_mapping::require_no_overlap(PDOmap[i], i, pos, size);
    }
    if (length < pos + size) {
        length = pos + size;
    }
    PDOmap[mapCounter] = {.var_address = d,
                          .pdo_address = PDOdata + pos,
                          .pos = static_cast<unsigned char>(pos),
                          .len = static_cast<unsigned char>(size),
                          .type = t};
    ++mapCounter;
}

void PDO::mapbitref(unsigned int pos, unsigned int size, void* d) {
    const maptype type = pdo_mapping::bit_type(size);
    if (mapCounter >= max_mappings) {
        std::printf("PDO::mapbitref COBID=%#x Maximum number of mappings done\n", get_cobid());
        return;
    }
    if (pos >= data_bits) {
        std::printf("PDO::mapbitref COBID=0%#x Mapping not inside of the PDO\n", get_cobid());
        return;
    }
    const unsigned int byte = pos / 8;
    if (length < byte + 1) {
        length = byte + 1;
    }
    PDOmap[mapCounter] = {.var_address = d,
                          .pdo_address = PDOdata + byte,
                          .pos = static_cast<unsigned char>(pos % 8),
                          .len = static_cast<unsigned char>(size),
                          .type = type};
    ++mapCounter;
}

void PDO::create_tpdo(void* data) {
    create_tpdo(static_cast<const void*>(data));
}

void PDO::create_tpdo(const void* data) {
    std::memcpy(PDOdata, data, sizeof PDOdata);
    for (const mapping& m : std::span(PDOmap, static_cast<std::size_t>(mapCounter))) {
        check_address(m, "Destination variable address if smaller than 10000 !");
        switch (m.type) {
            case none:
                pdo_mapping::refuse("PDO::createTPDO Mapping of type none !");
            case bit1:
                pdo_mapping::store_bit<std::uint8_t>(m.var_address, *m.pdo_address, m.pos);
                break;
            case bit2:
                pdo_mapping::store_bit<std::uint16_t>(m.var_address, *m.pdo_address, m.pos);
                break;
            case bit4:
                pdo_mapping::store_bit<std::uint32_t>(m.var_address, *m.pdo_address, m.pos);
                break;
            case char1:
            case uchar1:
                std::memcpy(m.var_address, m.pdo_address, 1);
                break;
            case short2:
            case ushort2:
                std::memcpy(m.var_address, m.pdo_address, 2);
                break;
            case int4:
            case uint4:
                std::memcpy(m.var_address, m.pdo_address, 4);
                break;
            case longlong8:
            case ulonglong8:
                std::memcpy(m.var_address, m.pdo_address, 8);
                break;
            default:
                pdo_mapping::refuse("PDO::createTPDO Unknown mapping type");
        }
    }
    std::memcpy(oldPDOdata, PDOdata, sizeof oldPDOdata);
}

void PDO::create_rpdo() {
    for (const mapping& m : std::span(PDOmap, static_cast<std::size_t>(mapCounter))) {
        check_address(m, "Source variable address if smaller than 10000 !");
        switch (m.type) {
            case none:
                pdo_mapping::refuse("PDO::createRPDO Mapping of type none !");
            case bit1:
            case bit2:
            case bit4:
                pdo_mapping::take_bit(m.pdo_address, m.pos, m.var_address);
                break;
            case char1:
            case uchar1:
                std::memcpy(m.pdo_address, m.var_address, 1);
                break;
            case short2:
            case ushort2:
                std::memcpy(m.pdo_address, m.var_address, 2);
                break;
            case int4:
            case uint4:
                std::memcpy(m.pdo_address, m.var_address, 4);
                break;
            case longlong8:
            case ulonglong8:
                std::memcpy(m.pdo_address, m.var_address, 8);
                break;
            default:
                pdo_mapping::refuse("PDO::createRPDO Unknown mapping type");
        }
    }
}

bool PDO::pdo_changed() {
    if (std::memcmp(PDOdata, oldPDOdata, sizeof PDOdata) == 0) {
        return false;
    }
    std::memcpy(oldPDOdata, PDOdata, sizeof oldPDOdata);
    return true;
}

void PDO::map_object(unsigned short index, unsigned char subindex, unsigned char len) {
    // A node may tell a count that the table does not hold, a negative one too.
    if (obj_info.mappingcount < 0 || obj_info.mappingcount >= max_mappings) {
        return;
    }
    // The truth value and not the mapping word: this is what nodes in the field have been set up with.
    obj_info.pdo_mappings[obj_info.mappingcount] = (index != 0 || subindex != 0 || len != 0) ? 1 : 0;
    ++obj_info.mappingcount;
}

void PDO::print_mappings() const {
    unsigned int number = 0;
    // A node may tell a count that the table does not hold.
    const auto count = static_cast<std::size_t>(
        std::clamp(obj_info.mappingcount, 0, static_cast<int>(std::size(obj_info.pdo_mappings))));
    for (const int entry : std::span(obj_info.pdo_mappings).first(count)) {
        const auto word = static_cast<unsigned int>(entry);
        std::printf("Mapping Nro=%2u  Index=0x%04x  Subindex=0x%02x  Lenght=%2hhu\n", number, word >> 16,
                    (word >> 8) & 0xFFU, static_cast<unsigned char>(word));
        ++number;
    }
    std::printf("SYNC type=0x%02x\n", static_cast<unsigned int>(obj_info.transmission_type));
}

void PDO::print() const {
    std::printf("PDO COBID=0x%03x  addresss=%p  data=", get_cobid(), static_cast<const void*>(PDOdata));
    for (const unsigned char byte : PDOdata) {
        std::printf("%02x ", byte);
    }
    std::putchar('\n');
}
