/// @file
/// The CANopen master.
///
/// CANopen (CiA 301) gives the 11 bits of a CAN identifier, the COB-ID, two parts: a function code (COB-ID &
/// 0x780) and a node number (COB-ID & 0x7F). What passes between this master and the nodes of a bus:
///
/// | COB-ID                             | From   | Meaning                                                   |
/// |------------------------------------|--------|-----------------------------------------------------------|
/// | 0x000                              | master | NMT command: start, stop, reset ... a node                |
/// | 0x080                              | master | SYNC: every node acts at the same time                    |
/// | 0x080 + node                       | node   | emergency                                                 |
/// | 0x180, 0x280, 0x380, 0x480 + node  | node   | TPDO 1 to 4: process data of the node                     |
/// | 0x200, 0x300, 0x400, 0x500 + node  | master | RPDO 1 to 4: process data for the node                    |
/// | 0x580 + node                       | node   | SDO answer                                                |
/// | 0x600 + node                       | master | SDO request: read or write one object                     |
/// | 0x700 + node                       | both   | node guarding (remote request and its answer), heartbeat  |
///
/// Direction words follow the node's point of view: a TPDO is received by the master, an RPDO is sent by it.
///
/// A program uses the master in this order: construct a CCANopen; open a driver and hand it over with
/// load_driver(); set the debug word and the show switches; build PDO objects, map the program's variables
/// into them and add them with add_tpdo() and add_rpdo(); start the nodes with start_node(); then cycle:
/// send_all_rpdos() or send_only_changed_rpdos(), sync(), read_all_until_duplicate_tpdo() or
/// read_all_messages(), and use the mapped variables. SDO transfers and node guarding run in the same thread
/// between cycles.
///
/// A master without a driver must not be used: reading and sending operations call the driver unchecked.

#ifndef NODEVIK_CANOPEN_H
#define NODEVIK_CANOPEN_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "nodevik/candriver.h"
#include "nodevik/decoder.h"
#include "nodevik/pdo.h"
#include "nodevik/util/export.h"
#include "nodevik/util/vt100.h"

class TpdoIndex;

/// A CANopen master on one CAN driver.
///
/// The master keeps plain pointers to the caller's PDO objects and to the driver. Both stay the caller's:
/// they have to outlive the master's use of them, and the master never copies or deletes them.
///
/// No memory is allocated after construction. One thread uses a master at a time; there are no locks.
class NODEVIK_EXPORT CCANopen : public CDecoder, public VT100 {
public:
    /// Builds a master without a driver and with empty lists of 512 places each. The debug word is 1, and
    /// every type of message is shown.
    CCANopen();

    /// Frees the lists, neither the PDOs in them nor the driver.
    ~CCANopen() override;

    CCANopen(const CCANopen&) = delete;
    CCANopen& operator=(const CCANopen&) = delete;

    /// @name Set-up
    /// @{

    /// Replaces the debug word.
    ///
    /// @param d  bit set: 1 usage errors and failed SDO transfers end the process (the default), 2 an SDO
    ///           request that nobody answers is reported, 4 every received frame is decoded and printed (the
    ///           bit is also set in the attached driver's debug word, and never cleared there), 8 node
    ///           guarding is traced
    void set_debug(unsigned int d);

    /// Attaches an open driver. The master neither opens, closes nor deletes it.
    ///
    /// With bit 4 in the debug word the bit is also set in the driver's. A null reference fails the assertion
    /// "&driver != __null", which ends the process.
    void load_driver(CANdriver& driver);

    /// Adds a PDO that the master sends.
    ///
    /// A COB-ID that is in the list already, or a full list (512), prints a message; bit 1 of the debug word
    /// then ends the process with status 1.
    ///
    /// @param pdo  has to live as long as the master
    /// @return 0, or -1 when it was not added
    int add_rpdo(PDO& pdo);

    /// Adds a PDO that the master receives; otherwise like add_rpdo().
    ///
    /// The COB-ID of an added PDO may change at any time, in a driver's read() too; from the next frame on the
    /// PDO receives under the new one. Should entries of the list come to share a COB-ID, the one added first
    /// receives, except in read_all_until_duplicate_tpdo(), where all of them do. Among more than 16 entries
    /// one that comes to share a COB-ID *while* the master receives may have to wait for it: until this COB-ID
    /// comes again, and no longer than to the end of the call.
    ///
    /// @param pdo  has to live as long as the master
    /// @return 0, or -1 when it was not added
    int add_tpdo(PDO& pdo);

    /// @}
    /// @name What is printed
    /// Each switches one kind of frame on or off in the decoder's type filter.
    /// @{

    /// Shows or hides NMT commands.
    void show_nmt(bool enable);

    /// Shows or hides the process data of the nodes.
    void show_tpdo(bool enable);

    /// Shows or hides the process data for the nodes.
    void show_rpdo(bool enable);

    /// Shows or hides SDO requests and answers.
    void show_sdo(bool enable);

    /// Shows or hides SYNC and emergency frames.
    void show_sync(bool enable);

    /// Shows or hides node guarding and heartbeat.
    void show_nodeguard(bool enable);

    /// @}
    /// @name Cyclic exchange
    /// @{

    /// Empties the driver's receive queue. Each TPDO goes into the PDO of its COB-ID and so into the mapped
    /// variables, and counts one up in PDO::PDO_updated; a TPDO that nobody added is dropped.
    ///
    /// @return 0 when the queue is empty, -1 after a driver's error
    int read_all_messages();

    /// Receives one bus cycle: reads until a TPDO arrives for the second time since the call. That frame is
    /// held back and is the first one of the next call.
    ///
    /// PDO::PDO_updated of every TPDO is cleared first, so that afterwards it tells which of them have come
    /// (1).
    ///
    /// @return 1 when a repeated TPDO ended the cycle, 0 when the queue was empty (or the driver failed)
    ///         first
    int read_all_until_duplicate_tpdo();

    /// Counts the TPDOs that have not come since their counters were cleared.
    ///
    /// @param command  bit set: 1 clears the counters, 2 prints a line for each TPDO
    /// @return number of TPDOs not received; 0 means that all were
    int all_tdpos_updated(unsigned int command);

    /// Fills every RPDO from its mapped variables and sends it with its own length.
    void send_all_rpdos();

    /// The same, but sends only those RPDOs whose data differ from what was last sent.
    void send_only_changed_rpdos();

    /// Fills one PDO from its mapped variables and sends it, always with eight bytes, whatever its own
    /// length.
    ///
    /// @param pdo  any PDO; it need not be in the list
    void send_pdo(PDO& pdo);

    /// Sends a raw frame. More than eight bytes are refused with a message.
    ///
    /// @param cobid  COB-ID of the frame
    /// @param len    number of bytes, 0 to 8
    /// @param data   the bytes, the least significant one first
    void send_frame(unsigned int cobid, unsigned int len, unsigned long long data);

    /// Sends a character string and its terminating zero as a frame. A string of eight characters or more, or
    /// a null pointer, is refused with a message.
    ///
    /// @param cobid  COB-ID of the frame
    /// @param data   zero-terminated, 0 to 7 characters
    void send_frame(unsigned int cobid, char* data);

    /// @}
    /// @name SDO client (CiA 301, 7.2.4)
    ///
    /// The master is the client of a node's default SDO channel: it asks on 0x600 + node, and the node
    /// answers on 0x580 + node. A request of eight bytes carries a command specifier, the index (low byte
    /// first), the subindex and four bytes of data. Objects of up to four bytes travel in the request or in
    /// its answer (expedited transfer), longer ones in a sequence of segments of up to seven bytes, whose
    /// requests and answers carry a toggle bit instead of index and subindex.
    ///
    /// A frame is the answer when its function code is 0x580 and it names the index and the subindex asked
    /// for; the node number in it is not compared. An answer to a segment names neither: it is one when it
    /// comes on the COB-ID that answered the first request. Other frames that arrive in the meantime are
    /// treated as by read_all_messages().
    ///
    /// A request is sent up to four times, 20 ms apart, until it is answered; one for a segment once, and
    /// awaited as long, because a node takes a repeated segment for a fault. While bit 1 of the debug
    /// word is set (the default), a transfer that the node aborts or does not answer ends the process with
    /// status 1, after the message; otherwise the result tells. Only the low seven bits of @p ID are used as
    /// the node number.
    ///
    /// An answer tells the object, but not which request it answers. So one that comes later than 20 ms is
    /// taken for the answer to the next attempt, whose own answer is left over, and taken by the next request
    /// about the same object: from then on every value read is the one before. discard_late_sdo_answers()
    /// prevents that.
    /// @{

    /// Chooses whether answers that are left over from earlier requests are discarded.
    ///
    /// When on, each request, also one for a segment, first empties the driver's receive queue, before it is
    /// sent for the first time. What is found there is treated as by read_all_messages(): TPDOs reach their
    /// variables. An answer that is still under way at that moment cannot be told from the one waited for. So
    /// against a node that answers later than 20 ms, leave time between two requests about one object.
    ///
    /// @param enable  true discards; false, the state of a new master, takes every answer that fits
    void discard_late_sdo_answers(bool enable);

    /// Reads an object of up to four bytes. A longer one is read to its end, but only its first four bytes
    /// are kept (sdo_read_segment() gets them all, and tells how such a transfer can end).
    ///
    /// @param ID        node number, 1 to 127
    /// @param index     object index
    /// @param subindex  object subindex
    /// @param data      the value, zero-extended; after an abort by the node the abort code
    /// @return 0, or -1 after an abort or without an answer
    int sdo_read(unsigned int ID, unsigned short index, unsigned char subindex, int& data);

    /// Writes an object of one to four bytes.
    ///
    /// @param ID        node number, 1 to 127
    /// @param index     object index
    /// @param subindex  object subindex
    /// @param len       number of bytes, 1 to 4
    /// @param data      the value; only its low @p len bytes are sent
    /// @return 0 on success, 1 for a wrong @p len (with bit 1 of the debug word the process ends with status
    ///         255) or an answer that is none, -2 after an abort, -1 without an answer
    int sdo_write(unsigned int ID, unsigned short index, unsigned char subindex, unsigned int len, int data);

    /// Reads an object of any size.
    ///
    /// Once the node has answered the first request, the transfer ends with an abort from this side and
    /// result -1 when
    ///
    /// - the object is longer than @p data has room for, or brings more than the node has announced, or more
    ///   than 1 MiB when it has announced nothing (0x05040005);
    /// - a segment is empty and not the last one (0x05040001), or is answered by nothing but what is no
    ///   answer to it (0x05040001 too);
    /// - the node does not alternate the toggle bit (0x05030000), or stays silent (0x05040000).
    ///
    /// An answer that comes twice does no harm: one that equals the segment before is passed over, and counts
    /// as a wrong toggle bit only if the answer waited for never comes. What the segments bring decides the
    /// length, which may be less than the node has announced.
    ///
    /// @param ID        node number, 1 to 127
    /// @param index     object index
    /// @param subindex  object subindex
    /// @param len       on the way in the room in @p data, on the way out the number of bytes received,
    ///                  whatever the result
    /// @param data      receives the object's bytes, without a terminating zero
    /// @return 0, or -1 after an abort from either side or without an answer
    int sdo_read_segment(unsigned int ID, unsigned short index, unsigned char subindex, unsigned int& len,
                         char* data);

    /// Writes an object of any size, also of up to four bytes, in segments.
    ///
    /// A length of 0 is sent as one last segment without data, which is how the protocol expresses an empty
    /// string. Wrong toggle bits, repeated answers and silence are treated as in sdo_read_segment(); an answer
    /// to a segment that is none ends the transfer with an abort with 0x05040001 to the node. Before the node
    /// has confirmed the first request, nothing but that request is sent.
    ///
    /// @param ID        node number, 1 to 127
    /// @param index     object index
    /// @param subindex  object subindex
    /// @param len       number of bytes
    /// @param data      the bytes; not looked at when @p len is 0
    /// @return 0 on success, 1 for an answer that is none, -2 after an abort by the node, -1 without an
    ///         answer or for a wrong toggle bit
    int sdo_write_segment(unsigned int ID, unsigned short index, unsigned char subindex, unsigned int len,
                          char* data);

    /// @}
    /// @name PDO set-up of a node (CiA 301, 7.5.2.35 to 7.5.2.38)
    ///
    /// PDO number n has its communication object at 0x1400 + n (RPDO) or 0x1800 + n (TPDO) and its mapping
    /// object at 0x1600 + n or 0x1A00 + n. Bit 31 of the COB-ID entry, subindex 1 of the communication
    /// object, disables the PDO. The numbers are taken modulo 512.
    /// @{

    /// Writes a PDO's COB-ID, mapping list and transmission type to a node's TPDO; results are ignored.
    ///
    /// The PDO is disabled while its mapping changes. The number of mappings is written with four bytes.
    ///
    /// @param nodeid      node number, 1 to 127
    /// @param PDO_number  0 to 511
    /// @param pdo         its COB-ID and PDO::obj_info are written
    void save_tpdo_mappings(unsigned int nodeid, unsigned int PDO_number, PDO& pdo);

    /// The same for a node's RPDO.
    void save_rpdo_mappings(unsigned int nodeid, unsigned int PDO_number, PDO& pdo);

    /// Reads COB-ID, mapping list and transmission type of a node's TPDO into a PDO.
    ///
    /// A disabled PDO prints a message and leaves an empty mapping list. Nothing changes when the COB-ID
    /// cannot be read. A COB-ID that is out of a PDO's range ends the process, see PDO::set_cobid().
    ///
    /// @param nodeid      node number, 1 to 127
    /// @param PDO_number  0 to 511
    /// @param pdo         receives COB-ID and PDO::obj_info
    void load_tpdo_mappings(unsigned int nodeid, unsigned int PDO_number, PDO& pdo);

    /// The same for a node's RPDO.
    void load_rpdo_mappings(unsigned int nodeid, unsigned int PDO_number, PDO& pdo);

    /// Prints the COB-IDs of a node's TPDOs, up to the first that is disabled or cannot be read, and their
    /// number.
    ///
    /// @param nodeid  node number, 1 to 127
    void show_node_tpdo_cobids(unsigned char nodeid);

    /// The same for a node's RPDOs.
    void show_node_rpdo_cobids(unsigned char nodeid);

    /// Reads a node's device type (object 0x1000, see sdo_read()) and prints what it says about the node.
    ///
    /// @param node  node number, 1 to 127
    /// @return the result of reading the object: 0, or -1 when nothing was printed
    int print_device_type(int node);

    /// @}
    /// @name Network management, SYNC and node guarding (CiA 301, 7.2.5 and 7.2.8)
    /// An NMT command to node number 0 addresses all nodes.
    /// @{

    /// Sends SYNC: COB-ID 0x080 without data.
    void sync();

    /// Sends a node to the pre-operational state: only SDO, no PDO.
    void set_preoperational(unsigned char ID) const;

    /// Starts a node: it becomes operational and exchanges PDOs.
    void start_node(unsigned char ID) const;

    /// Stops a node: only NMT and guarding are left.
    void stop_node(unsigned char ID) const;

    /// Resets a node as switching it off and on would.
    void reset_node(unsigned char ID) const;

    /// Resets a node's communication parameters.
    void reset_communication(unsigned char ID) const;

    /// Asks a node for its state and waits for the answer.
    ///
    /// All other frames that arrive meanwhile are lost, TPDOs too: do not guard while a cycle depends on the
    /// same driver's queue.
    ///
    /// @param ID       node number, 1 to 127
    /// @param timeout  longest wait in milliseconds; 0 polls once
    /// @return 4 stopped, 5 operational, 127 pre-operational, 0 any other state, -1 no answer
    int nodeguard(unsigned char ID, unsigned int timeout);

    /// @}

protected:
    /// Builds the text line for one frame, read as CANopen.
    ///
    /// @param id    the frame's COB-ID
    /// @param len   number of data bytes
    /// @param data  eight bytes
    /// @return 0 to have the line printed, other values to have it dropped
    int decode_message(uint32_t id, uint8_t len, const void* data) const override;

private:
    // A TPDO that arrived before its turn; cobid 0 means that there is none.
    struct held_frame {
        uint64_t data;
        unsigned int cobid;
        unsigned int len;
    };

    // A frame on its way from or to the driver, which always deals with all eight bytes.
    struct bus_frame {
        unsigned int cobid = 0;
        unsigned int length = 0;
        std::array<unsigned char, 8> data = {};
    };

    // Where an SDO transfer stands, and how it ended.
    struct sdo_transfer;
    enum class sdo_outcome { answered, aborted, silent, refused, unknown };

    // What a frame that arrived during an SDO transfer is to it.
    enum class sdo_reaction { foreign, ignored, finished };

    // How an SDO answer is awaited: at a fixed pace, or at once and only later at that pace.
    enum class sdo_pace { steady, eager };

    // The indices of the objects that hold the set-up of a node's PDO.
    struct pdo_objects {
        unsigned short communication;
        unsigned short mapping;
    };

    static constexpr int list_size = 512;

    NODEVIK_LOCAL int add_pdo(PDO& pdo, PDO** list, int& count, int size, const char* kind);
    NODEVIK_LOCAL int messagehandler(unsigned int cobid, unsigned int length, unsigned char* candata);
    NODEVIK_LOCAL int handle_frame(const bus_frame& received);
    NODEVIK_LOCAL void show_frame(unsigned int cobid, unsigned int length, const unsigned char* candata);
    NODEVIK_LOCAL void reset_timedelay(unsigned int delay);
    NODEVIK_LOCAL int timedelay();
    NODEVIK_LOCAL int read_frame(bus_frame& received);
    NODEVIK_LOCAL bool take_first_frame(bus_frame& received);
    NODEVIK_LOCAL bool update_cycle(const bus_frame& received);
    NODEVIK_LOCAL void send_nmt(unsigned char command, unsigned char ID) const;
    NODEVIK_LOCAL int guarded_state(const bus_frame& received) const;

    NODEVIK_LOCAL bool has_tpdo(unsigned int cobid) const;

    template <typename Reaction>
    bool sdo_exchange(const bus_frame& request, sdo_pace pace, Reaction react);
    NODEVIK_LOCAL void sdo_print(int color, const char* text, const sdo_transfer& transfer,
                                 unsigned int node);
    NODEVIK_LOCAL void sdo_aborted(const sdo_transfer& transfer, const bus_frame& answer);
    NODEVIK_LOCAL void sdo_unknown(const sdo_transfer& transfer, const bus_frame& answer);
    NODEVIK_LOCAL sdo_outcome sdo_silent(const sdo_transfer& transfer);
    NODEVIK_LOCAL sdo_outcome sdo_refuse(const sdo_transfer& transfer, unsigned int code);
    NODEVIK_LOCAL void sdo_send_abort(const sdo_transfer& transfer, unsigned int code);
    NODEVIK_LOCAL static bool starts_upload(const sdo_transfer& transfer, const bus_frame& answer);
    NODEVIK_LOCAL sdo_outcome sdo_initiate_upload(sdo_transfer& transfer);
    NODEVIK_LOCAL sdo_outcome sdo_initiate_download(sdo_transfer& transfer, unsigned char command,
                                                    unsigned int data);
    NODEVIK_LOCAL sdo_outcome sdo_segment(sdo_transfer& transfer, const bus_frame& request);
    NODEVIK_LOCAL sdo_outcome sdo_upload_segments(sdo_transfer& transfer, char* data, unsigned int room,
                                                  unsigned int most, unsigned int& received);
    NODEVIK_LOCAL sdo_outcome sdo_download_segments(sdo_transfer& transfer, unsigned int len,
                                                    const char* data);
    NODEVIK_LOCAL static unsigned int sdo_expedited_value(const bus_frame& answer);
    NODEVIK_LOCAL static int write_result(sdo_outcome outcome);

    NODEVIK_LOCAL static pdo_objects tpdo_objects(unsigned int number);
    NODEVIK_LOCAL static pdo_objects rpdo_objects(unsigned int number);
    NODEVIK_LOCAL void save_mappings(pdo_objects objects, unsigned int nodeid, PDO& pdo);
    NODEVIK_LOCAL void load_mappings(pdo_objects objects, unsigned int nodeid, unsigned int PDO_number,
                                     PDO& pdo);
    NODEVIK_LOCAL void show_node_cobids(unsigned char nodeid, pdo_objects (*objects)(unsigned int),
                                        const char* kind);

    unsigned int can_debug = 1;
    int RPDOcount = 0;
    int TPDOcount = 0;
    std::unique_ptr<PDO*[]> RPDOlist;
    std::unique_ptr<PDO*[]> TPDOlist;
    int rlistSize = list_size;
    int tlistSize = list_size;
    CANdriver* canDriver = nullptr;
    unsigned int newtime = 0;
    bool can_Frametype = false;
    uint32_t type_mask = 0xFF;
    uint32_t cobid_bits_up_mask = 0;
    uint32_t cobid_bits_down_mask = 0;
    held_frame duplicate_TDPO = {};
    bool discard_late_answers = false;
    std::unique_ptr<TpdoIndex> tpdo_index;
};

#endif
