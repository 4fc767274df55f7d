#include "nodevik/tpdoindex.h"

#include <algorithm>

TpdoIndex::TpdoIndex() {
    entries_.fill({nullptr, 0, no_position});
    found_in_.fill(0);
    chains_.fill(no_position);
}

void TpdoIndex::add(PDO& pdo) {
    entries_[count_].pdo = &pdo;
    ++count_;
}

void TpdoIndex::start_pass() {
    compared_ = 0;
    ++pass_;
}

int TpdoIndex::find(unsigned int cobid) {
    return is_walked() ? walk(cobid, 0) : look_up(cobid, Wanted::first);
}

int TpdoIndex::find_next(unsigned int cobid, int after) {
    if (is_walked()) {
        return walk(cobid, static_cast<std::size_t>(after + 1));
    }
    if (after == no_position) {
        return look_up(cobid, Wanted::all);
    }
    int position = after;
    do {
        position = entries_[static_cast<std::size_t>(position)].next;
    } while (position != no_position && (*this)[position].cobid != cobid);
    return position;
}

bool TpdoIndex::contains(unsigned int cobid) const {
    const int position = first_copy(cobid);
    return (position != no_position && (*this)[position].cobid == cobid) ||
           std::any_of(entries_.begin(), entries_.begin() + static_cast<std::ptrdiff_t>(count_),
                       [cobid](const Entry& entry) { return entry.pdo->cobid == cobid; });
}

// Searches the PDOs themselves, from a position on.
int TpdoIndex::walk(unsigned int cobid, std::size_t begin) const {
    const Entry* const first = entries_.data() + begin;
    const Entry* const last = entries_.data() + count_;
    const Entry* const found =
        std::find_if(first, last, [cobid](const Entry& entry) { return entry.pdo->cobid == cobid; });
    return found == last ? no_position : static_cast<int>(found - entries_.data());
}

// Searches the copy, which is made anew where it does not hold.
int TpdoIndex::look_up(unsigned int cobid, Wanted wanted) {
    int position = first_copy(cobid);
    if (position == no_position || !is_expected(position)) {
        start_pass();
    }
    const bool to_the_hit = wanted == Wanted::first && position != no_position;
    if (!compare(to_the_hit ? static_cast<std::size_t>(position) + 1 : count_)) {
        rebuild();
        position = first_copy(cobid);
    }
    if (position != no_position) {
        found_in_[static_cast<std::size_t>(position)] = pass_;
    }
    return position;
}

// Position of the first copy that has a COB-ID.
int TpdoIndex::first_copy(unsigned int cobid) const {
    int position = chains_[cobid % chain_count];
    while (position != no_position && entries_[static_cast<std::size_t>(position)].cobid != cobid) {
        position = entries_[static_cast<std::size_t>(position)].next;
    }
    return position;
}

// Whether a position is found for the first time in this pass and its PDO has the copy's COB-ID still.
bool TpdoIndex::is_expected(int position) const {
    const auto index = static_cast<std::size_t>(position);
    return found_in_[index] != pass_ && entries_[index].pdo->cobid == entries_[index].cobid;
}

// Whether the PDOs before `end` equal their copies; looks at those that this pass has not compared yet.
bool TpdoIndex::compare(std::size_t end) {
    if (compared_ >= end) {
        return true;
    }
    const Entry* const first = entries_.data() + compared_;
    const Entry* const last = entries_.data() + end;
    const Entry* const changed =
        std::find_if(first, last, [](const Entry& entry) { return entry.pdo->cobid != entry.cobid; });
    compared_ = end;
    return changed == last;
}

// Copies the COB-IDs, and builds the chains from their ends on, so that they run in list order.
void TpdoIndex::rebuild() {
    chains_.fill(no_position);
    for (std::size_t i = count_; i > 0; --i) {
        Entry& entry = entries_[i - 1];
        entry.cobid = entry.pdo->cobid;
        int& first = chains_[entry.cobid % chain_count];
        entry.next = first;
        first = static_cast<int>(i - 1);
    }
    compared_ = count_;
    ++pass_;
}
