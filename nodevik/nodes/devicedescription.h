/// @file
/// What a node is, as its maker describes it: EDS and DCF files (CiA 306-1).
///
/// An EDS file (electronic data sheet) lists the objects of a type of node: index and subindex, name, data type,
/// access, limits, value after power-on. A DCF file (device configuration file) is the same for one node of a plant:
/// with its node number and the values that it is to have. Both are INI files, an object a section:
///
///     [1017]                                    [1018sub1]
///     ParameterName=Producer heartbeat time     ParameterName=Vendor-ID
///     ObjectType=0x7                            ObjectType=0x7
///     DataType=0x0006                           DataType=0x0007
///     AccessType=rw                             AccessType=ro
///     DefaultValue=0                            DefaultValue=0x1F1
///     ParameterValue=500
///
/// Real files are bad. What cannot be used is told, with file, line, section, key and reason, and passed over; the rest
/// is read. A file is refused only when no object is left.
///
///     DeviceDescription pump;
///     if (!pump.load("pump.eds")) { ... }                       // findings() says why
///     for (const auto& finding : pump.findings()) {
///         std::puts(finding.text().c_str());                    // pump.eds:12: [1018sub1] LowLimit: ...
///     }
///     const auto* heartbeat = pump.entry("Producer heartbeat time");
///     pump.entry(0x1018, 1)->value_text();                      // "0x1F1"
///
/// The file is kept line by line, so that a DCF made from it gives back what this reader does not know, comments too.
///
/// Nothing here prints, ends the process or knows a bus. A description belongs to one thread at a time; several may
/// read one that does not change.

#ifndef NODEVIK_NODES_DEVICEDESCRIPTION_H
#define NODEVIK_NODES_DEVICEDESCRIPTION_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nodevik/nodes/objectvalue.h"
#include "nodevik/util/export.h"

namespace eds {
class Document;
}

/// What kind of thing an object is (CiA 301, 7.4.3).
enum class ObjectCode : std::uint8_t {
    null = 0,
    domain = 2,
    deftype = 5,
    defstruct = 6,
    variable = 7,
    array = 8,
    record = 9
};

/// Who may do what with an entry (CiA 306-1, AccessType).
enum class ObjectAccess : std::uint8_t {
    unknown,            ///< the file does not say it, or in a word that is none: the node decides
    read_only,          ///< ro
    write_only,         ///< wo
    read_write,         ///< rw
    read_write_input,   ///< rwr: rw, can be mapped into a TPDO
    read_write_output,  ///< rww: rw, can be mapped into an RPDO
    constant            ///< const: ro, never changes
};

/// The word of an access right in a file: "ro", "rww", "const"; "unknown" for unknown.
NODEVIK_EXPORT const char* object_access_name(ObjectAccess access);

/// Something about a file that its reader should know.
struct NODEVIK_EXPORT DescriptionFinding {
    /// How bad it is.
    enum class Severity : std::uint8_t {
        note,     ///< passed over, kept for writing: an unknown key or section
        warning,  ///< odd, but taken
        error     ///< not usable, passed over
    };
    Severity severity = Severity::error;  ///< how bad it is
    std::string file;                     ///< as load() got it
    unsigned int line = 0;                ///< from 1; 0 when it is about the whole file
    std::string section;  ///< without brackets, its first 255 bytes; empty outside of sections
    std::string key;      ///< its first 255 bytes; empty when it is about the whole section
    std::string reason;   ///< what it is, in words that follow the key: "does not fit UNSIGNED8"

    /// In one line: `file:line: [section] key: reason`, without what is empty.
    std::string text() const;
};

/// The description of a node.
class NODEVIK_EXPORT DeviceDescription {
public:
    /// One value of a node: a variable, or a member of an array or record.
    struct NODEVIK_EXPORT Entry {
        std::uint16_t index = 0;                      ///< of its object
        std::uint8_t subindex = 0;                    ///< within the object
        ObjectDataType type = ObjectDataType::none;   ///< DataType; none when it is not known
        ObjectAccess access = ObjectAccess::unknown;  ///< AccessType
        bool pdo_mapping = false;                     ///< can be mapped into a PDO
        bool is_domain = false;                       ///< a DOMAIN, of any length
        std::uint32_t flags = 0;     ///< ObjFlags: bit 0 not written on download, bit 1 not read on scan
        unsigned int line = 0;       ///< where its section begins; 0 when it has none of its own
        std::string name;            ///< ParameterName, UTF-8
        std::string object_name;     ///< name of the array or record that it is a member of; else empty
        std::string default_text;    ///< DefaultValue as it stands, empty when there is none
        std::string parameter_text;  ///< ParameterValue of a DCF, empty when there is none
        std::string low_text;        ///< LowLimit, empty when there is none
        std::string high_text;       ///< HighLimit, empty when there is none
        std::string denotation;      ///< name in the plant, of a DCF
        std::string upload_file;     ///< file for the value of a domain that is read, of a DCF
        std::string download_file;   ///< file with the value of a domain that is written, of a DCF

        /// Name with the object's before it: "Identity object/Vendor-ID", or "Device type".
        std::string full_name() const;
        /// Tells whether a node lets it be read; true when the access is unknown.
        bool readable() const;
        /// Tells whether a node lets it be written; true when the access is unknown.
        bool writable() const;
        /// The value as text: that of the DCF if there is one, else the default; empty when there is neither.
        const std::string& value_text() const;

        /// The value: that of the DCF if there is one, else the default.
        /// @param node_id  1 to 127 for values that depend on the node's number; 0 when it is not known
        /// @return nothing when there is none, or it depends on the number and that is not known
        std::optional<ObjectBytes> value(unsigned int node_id = 0) const;
        /// The default value. @see value
        std::optional<ObjectBytes> default_value(unsigned int node_id = 0) const;
        /// The least value that the node takes. @see value
        std::optional<ObjectBytes> low(unsigned int node_id = 0) const;
        /// The greatest value that the node takes. @see value
        std::optional<ObjectBytes> high(unsigned int node_id = 0) const;

        /// Makes a value for this entry of a text, by its type, within its limits.
        /// @return the value, or why it is none: "is below the low limit 5"
        /// @see parse_object
        ObjectParse parse(std::string_view text, unsigned int node_id = 0) const;
        /// Makes a text of a value of this entry. @see format_object
        std::string format(const ObjectBytes& bytes) const { return format_object(type, bytes); }
        /// Tells why a value is outside of the limits: "is below the low limit 5"; empty when it is not.
        std::string out_of_limits(const ObjectBytes& bytes, unsigned int node_id = 0) const;
    };

    /// An object: one index.
    struct Object {
        /// The list of the file that names it.
        enum class List : std::uint8_t { none, mandatory, optional, manufacturer };

        std::uint16_t index = 0;                 ///< where it stands in the dictionary
        ObjectCode code = ObjectCode::variable;  ///< ObjectType; told by its members when it is missing
        List list = List::none;                  ///< the list that names it
        unsigned int line = 0;                   ///< where its section begins; 0 when it has none of its own
        std::string name;                        ///< ParameterName, UTF-8
        std::vector<Entry> entries;              ///< by rising subindex, with gaps where the file has them

        /// Tells whether it is one value, without members.
        bool is_single() const { return code != ObjectCode::array && code != ObjectCode::record; }
    };

    /// Section FileInfo, texts as they stand.
    struct FileInfo {
        std::string file_name;          ///< FileName
        std::string file_version;       ///< FileVersion
        std::string file_revision;      ///< FileRevision
        std::string eds_version;        ///< EDSVersion: of the form that the file keeps, "4.0"
        std::string description;        ///< Description
        std::string creation_time;      ///< CreationTime, "hh:mmAM"
        std::string creation_date;      ///< CreationDate, "mm-dd-yyyy"
        std::string created_by;         ///< CreatedBy
        std::string modification_time;  ///< ModificationTime, "hh:mmAM"
        std::string modification_date;  ///< ModificationDate, "mm-dd-yyyy"
        std::string modified_by;        ///< ModifiedBy
        std::string last_eds;           ///< of a DCF: the EDS that it was made from
    };

    /// Section DeviceInfo.
    struct DeviceInfo {
        std::string vendor_name;                       ///< VendorName
        std::string product_name;                      ///< ProductName
        std::string order_code;                        ///< OrderCode
        std::optional<std::uint32_t> vendor_number;    ///< VendorNumber, as in 0x1018:1
        std::optional<std::uint32_t> product_number;   ///< ProductNumber, as in 0x1018:2
        std::optional<std::uint32_t> revision_number;  ///< RevisionNumber, as in 0x1018:3
        std::vector<unsigned int> baud_rates_kbit;     ///< that it can do, in kbit/s, rising: of 10 to 1000
        bool simple_boot_up_master = false;            ///< SimpleBootUpMaster
        bool simple_boot_up_slave = false;             ///< SimpleBootUpSlave
        bool dynamic_channels = false;                 ///< DynamicChannelsSupported
        bool group_messaging = false;                  ///< GroupMessaging: multiplexed PDOs
        bool lss = false;                              ///< can be given its node number by LSS (CiA 305)
        unsigned int granularity =
            0;  ///< smallest part of a PDO that can be mapped, in bits; 0 when none can
        unsigned int receive_pdos = 0;   ///< NrOfRXPDO, 0 to 512
        unsigned int transmit_pdos = 0;  ///< NrOfTXPDO, 0 to 512
        unsigned int compact_pdo = 0;    ///< mask of PDO parameters that exist without a section
    };

    /// Section DeviceComissioning (so spelled there) of a DCF.
    struct Commissioning {
        unsigned int node_id = 0;         ///< 1 to 127; 0 when it is not told
        std::string node_name;            ///< NodeName, the node's in the plant
        unsigned int baud_rate_kbit = 0;  ///< Baudrate, in kbit/s, to 65535; 0 when it is not told
        std::uint32_t net_number = 0;     ///< NetNumber, the bus's; 0 when it is not told
        std::string network_name;         ///< NetworkName, the bus's in the plant
        bool canopen_manager = false;     ///< CANopenManager: the node manages the bus
        std::optional<std::uint32_t> lss_serial_number;  ///< LSS_SerialNumber, as in 0x1018:4
    };

    /// What a DCF tells about its making.
    struct DcfOptions {
        std::string file_name;          ///< FileName; empty leaves what stands there
        std::string modification_date;  ///< "mm-dd-yyyy"; empty leaves what stands there
        std::string modification_time;  ///< "hh:mmAM"; empty leaves what stands there
        std::string modified_by;        ///< empty leaves what stands there
    };

    /// @name Reading
    /// Both drop what was read before.
    /// @{

    /// Reads a file.
    ///
    /// @param path  the file; of any length
    /// @retval true   there is at least one object; findings() may still have something to tell
    /// @retval false  the file cannot be read, or has no object that can be used: findings() says why
    bool load(const std::string& path);

    /// Reads a text.
    /// @param text  what a file would hold
    /// @param file  the file's name, for the findings and for DCFs made from it
    /// @return as load()
    bool parse(std::string text, const std::string& file);

    /// What was found while reading, by line.
    const std::vector<DescriptionFinding>& findings() const { return findings_; }

    /// Tells whether the file is a DCF: it has a commissioning section.
    bool is_dcf() const { return is_dcf_; }
    /// The file's name as load() or parse() got it.
    const std::string& file() const { return file_; }
    /// @}

    /// @name What the file tells beside the objects
    /// @{
    /// Section FileInfo.
    const FileInfo& file_info() const { return file_info_; }
    /// Section DeviceInfo.
    const DeviceInfo& device_info() const { return device_info_; }
    /// Section DeviceComissioning; all 0 and empty when there is none.
    const Commissioning& commissioning() const { return commissioning_; }
    /// Section Comments, a string for each line, UTF-8.
    const std::vector<std::string>& comments() const { return comments_; }
    /// Tells whether a data type can be mapped into an RPDO as a place holder (section DummyUsage).
    /// @param number  1 to 7
    bool has_dummy(unsigned int number) const { return number < dummies_.size() && dummies_[number]; }
    /// The node's number, 1 to 127, from the commissioning; 0 when the file does not tell it.
    unsigned int node_id() const { return commissioning_.node_id; }
    /// @}

    /// @name Objects
    /// Pointers and references stay valid until the description is read anew, copied over or destroyed.
    /// @{

    /// All objects, by rising index.
    const std::vector<Object>& objects() const { return objects_; }
    /// How many entries all objects have.
    std::size_t entry_count() const;
    /// The object of an index, or null.
    const Object* object(std::uint16_t index) const;
    /// The entry of an index and subindex, or null.
    const Entry* entry(std::uint16_t index, std::uint8_t subindex) const;

    /// The entry of a name, or null when no entry has it, or more than one.
    ///
    /// A member of an array or record is "Object/Member". Letters match in any case, blanks in any number, and "Input
    /// 1" matches "Input 01"; of several matches the one that is written exactly so is meant.
    ///
    /// @param name  UTF-8
    const Entry* entry(std::string_view name) const;
    /// The object of a name, or null when no object has it, or more than one. @see entry
    const Object* object(std::string_view name) const;
    /// All entries of a name, by index. @see entry
    std::vector<const Entry*> entries_named(std::string_view name) const;
    /// @}

    /// @name Making a DCF
    /// @{

    /// Says whose description it is. What is out of range is not taken.
    /// @param commissioning  node_id 0 to 127; texts of ISO 646 characters, lines of at most 255, or those of the file
    /// @return why it was not taken; empty when it was
    std::string set_commissioning(const Commissioning& commissioning);

    /// Sets the value that an entry is to have (ParameterValue).
    /// @param text  by the entry's type, within its limits; may hold `$NODEID`, which is kept; empty takes it off
    /// @return why it was not set; empty when it was
    std::string set_value(std::uint16_t index, std::uint8_t subindex, std::string_view text);
    /// Sets the value that an entry is to have. @see set_value
    std::string set_value(std::uint16_t index, std::uint8_t subindex, const ObjectBytes& bytes);

    /// The DCF: the lines of the file, with the values and the commissioning put in.
    ///
    /// Bytes, order, comments, and what this reader does not know are as in the file; sections that stood twice stand
    /// once. Objects that CompactPDO implies are written out when one of them has a value.
    std::string dcf(const DcfOptions& options) const;
    /// @}

private:
    friend class EdsReader;
    friend class DcfWriter;

    /// A name, made comparable, and where it leads.
    struct NamedEntry {
        std::string name;
        std::uint32_t object = 0;  ///< position in objects_
        std::uint32_t entry = 0;   ///< position in its entries
    };

    NODEVIK_LOCAL Entry* find_entry(std::uint16_t index, std::uint8_t subindex);
    NODEVIK_LOCAL void index_names();

    std::string file_;
    bool is_dcf_ = false;
    FileInfo file_info_;
    DeviceInfo device_info_;
    Commissioning commissioning_;
    bool commissioning_set_ = false;  ///< by set_commissioning()
    std::vector<std::string> comments_;
    std::array<bool, 8> dummies_ = {};
    std::vector<Object> objects_;
    std::vector<NamedEntry> names_;
    std::vector<DescriptionFinding> findings_;
    std::shared_ptr<const eds::Document> document_;
};

#endif
