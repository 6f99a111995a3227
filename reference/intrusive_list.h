// SPDX-License-Identifier: MIT
//
// A doubly linked list whose links stand in its elements: adding and removing cost no
// allocation and do not depend on its length. An element has a list_node for each list that it
// can stand in at a time; `purpose` tells them apart.
#pragma once

#include <cstddef>

namespace kel_reference {

template <typename element, typename purpose = void> struct list_node {
    element *next = nullptr;
    element *previous = nullptr;
};

template <typename element, typename purpose = void> class intrusive_list {
public:
    element *front() const { return first; }
    element *back() const { return last; }
    bool empty() const { return !first; }
    std::size_t size() const { return count; }

    // The one after it; null after the last.
    static element *next(const element &listed) { return static_cast<const node &>(listed).next; }

    // The one before it; null before the first.
    static element *previous(const element &listed)
    {
        return static_cast<const node &>(listed).previous;
    }

    void push_back(element &added) { insert_before(nullptr, added); }

    // Adds at the end where `place` is null.
    void insert_before(element *place, element &added)
    {
        node &links = added;
        links.next = place;
        links.previous = place ? previous(*place) : last;
        (links.previous ? static_cast<node &>(*links.previous).next : first) = &added;
        (place ? static_cast<node &>(*place).previous : last) = &added;
        count++;
    }

    void remove(element &removed)
    {
        node &links = removed;
        (links.previous ? static_cast<node &>(*links.previous).next : first) = links.next;
        (links.next ? static_cast<node &>(*links.next).previous : last) = links.previous;
        links = {};
        count--;
    }

private:
    using node = list_node<element, purpose>;

    element *first = nullptr;
    element *last = nullptr;
    std::size_t count = 0;
};

} // namespace kel_reference
