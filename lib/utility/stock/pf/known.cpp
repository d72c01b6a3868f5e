// The trees that pfupdate gave or that the registry has.

#include "pf/known.h"

#include <algorithm>
#include <cstdlib>

namespace stock {

constinit OrderedLock Trees_mutex{Place::trees};

namespace {

// A tree with the number n stands at n - 1.
Known *All = nullptr;
int32_t Room = 0;
int32_t Count = 0;       // numbers that were ever given
int32_t First_free = 0;  // a number that was given back, or 0

bool make_room()
{
    const int32_t room = std::max(2 * Room, 16);
    void *grown = std::realloc(All, static_cast<std::size_t>(room) * sizeof(Known));
    if (!grown)
        return false;
    All = static_cast<Known *>(grown);
    Room = room;
    return true;
}

// An unused number, or 0 without memory.
int32_t new_number()
{
    if (const int32_t number = First_free) {
        First_free = All[number - 1].next_free;
        return number;
    }
    return Count < Room || make_room() ? ++Count : 0;
}

}  // namespace

Known *known_of(const Pf *pf)
{
    const int32_t number = number_of(pf);
    if (number < 1 || number > Count || All[number - 1].tree != pf)
        return nullptr;
    return known_at(number);
}

Known *known_at(int32_t number)
{
    return &All[number - 1];
}

Known *make_known(Pf *pf)
{
    if (Known *known = known_of(pf))
        return known;
    const int32_t number = new_number();
    if (number == 0)
        return nullptr;
    Known *known = &All[number - 1];
    *known = {pf, nullptr, nullptr, 0};
    set_number(pf, number);
    return known;
}

void drop_unused(Known *known)
{
    if (known->state || known->entries)
        return;
    if (known_of(known->tree) == known)
        set_number(known->tree, 0);
    known->tree = nullptr;
    known->next_free = First_free;
    First_free = static_cast<int32_t>(known - All) + 1;
}

}  // namespace stock
