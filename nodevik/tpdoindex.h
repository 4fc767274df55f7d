/// @file
/// How the master finds the PDO of a received frame. Not for callers.

#ifndef NODEVIK_TPDOINDEX_H
#define NODEVIK_TPDOINDEX_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "nodevik/pdo.h"

/// The PDOs that a master receives, to be found by COB-ID.
///
/// A frame belongs to the first PDO in the order of adding that has its COB-ID. The COB-ID is a plain field
/// that the program may write at any time, so only a walk along the PDOs can tell for sure. Up to 16 of them,
/// and most programs have no more, are walked for every frame. More are too many for that: then the index
/// goes by a copy of the COB-IDs, and compares it with the PDOs once in a pass, as far as the PDO that the
/// copy names.
///
/// A pass is one round of the bus. It begins when the master begins to receive, and anew with a COB-ID that
/// comes again, that no copy has, or that its PDO has no more. So every change between two calls of the
/// master counts at once. A change that the driver makes while it reads does too, with one exception among
/// more than 16 PDOs: one that comes to share the COB-ID of another, after this pass has compared it, may get
/// its frames from the next pass on only.
class TpdoIndex {
public:
    static constexpr std::size_t capacity = 512;  ///< most PDOs that fit in
    static constexpr int no_position = -1;        ///< result of a search that has found nothing

    /// An index without PDOs.
    TpdoIndex();

    /// Adds a PDO behind the others.
    /// @param pdo  has to live as long as the index; no more than @ref capacity of them
    void add(PDO& pdo);

    /// Begins a pass: any COB-ID may be another than in the pass before.
    void start_pass();

    /// Finds the first PDO with a COB-ID.
    /// @return its position, or no_position
    int find(unsigned int cobid);

    /// Finds the next PDO with a COB-ID; for one who wants them all, from no_position on.
    /// @param cobid  COB-ID of a frame
    /// @param after  position of the one before, no_position for the first
    /// @return its position, or no_position
    int find_next(unsigned int cobid, int after);

    /// Tells whether any PDO has a COB-ID, within a pass or outside of one.
    bool contains(unsigned int cobid) const;

    /// The PDO at a position that was found.
    PDO& operator[](int position) const { return *entries_[static_cast<std::size_t>(position)].pdo; }

private:
    struct Entry {
        PDO* pdo;
        unsigned int cobid;  // the copy; 0, which is no TPDO's, until it is made
        int next;            // next position of the copy's chain
    };

    // Whether the first PDO of a COB-ID is looked for, or all of them are.
    enum class Wanted { first, all };

    static constexpr std::size_t most_walked = 16;
    static constexpr std::size_t chain_count = 0x800;

    bool is_walked() const { return count_ <= most_walked; }
    int walk(unsigned int cobid, std::size_t begin) const;
    int look_up(unsigned int cobid, Wanted wanted);
    int first_copy(unsigned int cobid) const;
    bool is_expected(int position) const;
    bool compare(std::size_t end);
    void rebuild();

    std::array<Entry, capacity> entries_;
    std::size_t count_ = 0;
    std::size_t compared_ = 0;  // in this pass the PDOs before this position equal their copies
    std::uint64_t pass_ = 1;    // number of this pass

    // Number of the pass in which a position was found last.
    std::array<std::uint64_t, capacity> found_in_;

    // First positions of the chains, by the low 11 bits of the copies; they run in the order of adding.
    std::array<int, chain_count> chains_;
};

#endif
