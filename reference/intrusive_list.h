// SPDX-License-Identifier: MIT
//
// A doubly linked list whose links stand in its elements: adding and removing cost no
// allocation and do not depend on its length. An element is in at most one list.
#pragma once

namespace kel_reference {

template <typename element> struct list_node {
    element *list_next = nullptr;
    element *list_previous = nullptr;
};

template <typename element> class intrusive_list {
public:
    element *front() const { return first; }
    bool empty() const { return !first; }

    void push_front(element &added)
    {
        added.list_previous = nullptr;
        added.list_next = first;
        if (first) {
            first->list_previous = &added;
        }
        first = &added;
    }

    void remove(element &removed)
    {
        if (removed.list_previous) {
            removed.list_previous->list_next = removed.list_next;
        } else {
            first = removed.list_next;
        }
        if (removed.list_next) {
            removed.list_next->list_previous = removed.list_previous;
        }
        removed.list_next = nullptr;
        removed.list_previous = nullptr;
    }

private:
    element *first = nullptr;
};

} // namespace kel_reference
