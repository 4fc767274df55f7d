#include "nodevik/objectdictionary.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <type_traits>

#include "nodevik/pdomapping.h"
#include "nodevik/util/assertion.h"

namespace {

constexpr unsigned int pdo_count = 512;
constexpr unsigned int first_cobid = 0x181;
constexpr unsigned int last_cobid = 0x3FF;
constexpr unsigned int tpdo_bit = 0x80;
constexpr unsigned int not_valid = 0x80000000;

using Entry = variable_mappings::entry;

// Bit mappings reach the record by words: see word_of.
static_assert(std::is_standard_layout_v<variable_mappings>);
static_assert(offsetof(variable_mappings, pdodata) == 0 && offsetof(variable_mappings, old_pdodata) == 8);
static_assert(sizeof(variable_mappings) >= 64);

bool has_record(unsigned int cid) {
    if (cid >= first_cobid && cid <= last_cobid) {
        return true;
    }
    std::puts("get_pdo_info: Wrong PDO cobid");
    return false;
}

void require_pdo_number(unsigned int id) {
    NODEVIK_ASSERT_AS("nodevik/objectdictionary", id < pdo_count, "id < 512");
}

void add_entry(variable_mappings& map, void* variable, unsigned int pos, unsigned int size,
               PDO::maptype type) {
    map.mappings[map.num_of_mappings] = {.var_address = variable,
                                         .pos = static_cast<unsigned char>(pos),
                                         .len = static_cast<unsigned char>(size),
                                         .type = static_cast<unsigned char>(type)};
    ++map.num_of_mappings;
}

// The record's word that a position works on. Positions from 8 on reach past the data: that is how the table
// is laid out for its callers.
unsigned char* word_of(variable_mappings& map, unsigned int pos) {
    return reinterpret_cast<unsigned char*>(&map) + std::size_t{8} * ((pos / 8) % 8);
}

void require_type(unsigned int type, const char* none_line, const char* unknown_line) {
    if (type == PDO::none) {
        pdo_mapping::refuse(none_line);
    }
    if (type > PDO::ulonglong8) {
        pdo_mapping::refuse(unknown_line);
    }
}

// Whether the variable can be reached; reports it when its address is only a small number.
bool check_address(const Entry& entry, const char* line) {
    if (pdo_mapping::is_suspicious(entry.var_address)) {
        pdo_mapping::report_address(line);
        return false;
    }
    return true;
}

}  // namespace

CObjectDictionary::CObjectDictionary() {
    for (unsigned int number = 0; number < pdo_count; ++number) {
        tpdoinf[number].commparam.cobid = tpdonum_to_cobid(number) | not_valid;
        rpdoinf[number].commparam.cobid = rpdonum_to_cobid(number) | not_valid;
    }
}

int CObjectDictionary::get_pdo_info(unsigned int cid, pdo_information* /*pinf*/) {
    return has_record(cid) ? 0 : -1;
}

pdo_information* CObjectDictionary::find_record(unsigned int cid) {
    if (!has_record(cid)) {
        return nullptr;
    }
    const unsigned int number = cobid_to_pdonum(cid);
    return (cid & tpdo_bit) != 0 ? &tpdoinf[number] : &rpdoinf[number];
}

void CObjectDictionary::mapref(unsigned int cobid, unsigned int pos, maptype t, void* d) {
    pdo_information* const record = find_record(cobid);
    if (record == nullptr) {
        return;
    }
    variable_mappings& map = record->varmap;
    pdo_mapping::require_address(d);
    const unsigned int size = pdo_mapping::byte_size(t);
    if (map.num_of_mappings >= pdo_mapping::max_entries) {
        std::printf("PDO::mapref COBID=0%#x Maximum number of mappings done\n", cobid);
        return;
    }
    if (pos > pdo_mapping::data_bytes - size) {
        std::printf("PDO::mapref COBID=0%#x Mapping not inside of the PDO\n", cobid);
        return;
    }
    for (unsigned int i = 0; i < map.num_of_mappings; ++i) {
        pdo_mapping::require_no_overlap(map.mappings[i], static_cast<int>(i), pos, size);
    }
    add_entry(map, d, pos, size, t);
}

void CObjectDictionary::mapbitref(unsigned int cobid, unsigned int pos, unsigned int size, void* d) {
    pdo_information* const record = find_record(cobid);
    if (record == nullptr) {
        return;
    }
    variable_mappings& map = record->varmap;
    const maptype type = pdo_mapping::bit_type(size);
    if (map.num_of_mappings >= pdo_mapping::max_entries) {
        std::printf("PDO::mapbitref COBID=%#x Maximum number of mappings done\n", cobid);
        return;
    }
    if (pos >= pdo_mapping::data_bits) {
        std::printf("PDO::mapbitref COBID=0%#x Mapping not inside of the PDO\n", cobid);
        return;
    }
    add_entry(map, d, pos, size, type);
}

void CObjectDictionary::create_tpdo_data(unsigned int id) {
    require_pdo_number(id);
    variable_mappings& map = tpdoinf[id].varmap;
    for (unsigned int i = 0; i < map.num_of_mappings; ++i) {
        const Entry& entry = map.mappings[i];
        const bool reachable = check_address(entry, "Destination variable address if smaller than 10000 !");
        require_type(entry.type, "PDO::createTPDO Mapping of type none !",
                     "PDO::createTPDO Unknown mapping type");
        if (!reachable) {
            continue;
        }
        const unsigned char* const source = word_of(map, entry.pos);
        const unsigned int bit = entry.pos % 8U;
        switch (entry.type) {
            case PDO::bit1:
                pdo_mapping::store_bit(entry.var_address, pdo_mapping::load<std::uint8_t>(source), bit);
                break;
            case PDO::bit2:
                pdo_mapping::store_bit(entry.var_address, pdo_mapping::load<std::uint16_t>(source), bit);
                break;
            case PDO::bit4:
                pdo_mapping::store_bit(entry.var_address, pdo_mapping::load<std::uint32_t>(source), bit);
                break;
            case PDO::longlong8:
            case PDO::ulonglong8:
                // From the RPDO of that number: callers of this table count on the cross-over.
                std::memcpy(entry.var_address, &rpdoinf[id].varmap.pdodata, 8);
                break;
            default:
                std::memcpy(entry.var_address, source, pdo_mapping::variable_sizes[entry.type]);
        }
    }
}

void CObjectDictionary::create_rpdo_data(unsigned int id) {
    require_pdo_number(id);
    variable_mappings& map = rpdoinf[id].varmap;
    for (unsigned int i = 0; i < map.num_of_mappings; ++i) {
        const Entry& entry = map.mappings[i];
        const bool reachable = check_address(entry, "Source variable address if smaller than 10000 !");
        require_type(entry.type, "PDO::createRPDO Mapping of type none !",
                     "PDO::createRPDO Unknown mapping type");
        if (!reachable) {
            continue;
        }
        unsigned char* const destination = word_of(map, entry.pos);
        switch (entry.type) {
            case PDO::bit1:
            case PDO::bit2:
            case PDO::bit4:
                pdo_mapping::take_bit(destination, entry.pos % 8U, entry.var_address);
                break;
            case PDO::longlong8:
            case PDO::ulonglong8:
                std::memcpy(&map.pdodata, entry.var_address, 8);
                break;
            default:
                std::memcpy(destination, entry.var_address, pdo_mapping::variable_sizes[entry.type]);
        }
    }
}

bool CObjectDictionary::rpdo_changed(unsigned int id) const {
    require_pdo_number(id);
    return rpdoinf[id].varmap.pdodata != rpdoinf[id].varmap.old_pdodata;
}

int CObjectDictionary::read_object(unsigned int index, unsigned int subindex, int& data) {
    read = true;
    const int result = gobject(index, subindex);
    data = static_cast<int>(od);
    return result;
}

int CObjectDictionary::write_object(unsigned int index, unsigned int subindex, int data) {
    read = false;
    od = static_cast<unsigned int>(data);
    return gobject(index, subindex);
}

int CObjectDictionary::gobject(unsigned int /*index*/, unsigned int /*subindex*/) {
    std::puts("Unsupported Index");
    return -1;
}
