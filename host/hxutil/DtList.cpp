#include "hxutil/DtList.h"

DtList::DtList(const DtList& other) {
    *this = other;
}

DtList& DtList::operator=(const DtList& other) {
    if (this == &other)
        return *this;
    items_.clear();
    for (const DtListItem& item : other.items_)
        items_.emplace_back(item.data());
    relink();
    return *this;
}

DtListItem* DtList::add(void* data) {
    items_.emplace_back(data);
    DtListItem* added = &items_.back();
    if (items_.size() > 1)
        std::prev(items_.end(), 2)->next_ = added;
    return added;
}

DtListItem* DtList::first() {
    return items_.empty() ? nullptr : &items_.front();
}
const DtListItem* DtList::first() const {
    return items_.empty() ? nullptr : &items_.front();
}

bool DtList::remove(DtListItem* item) {
    for (auto it = items_.begin(); it != items_.end(); ++it) {
        if (&*it != item)
            continue;
        items_.erase(it);
        relink();
        return true;
    }
    return false;
}

void DtList::relink() {
    DtListItem* previous = nullptr;
    for (DtListItem& item : items_) {
        if (previous)
            previous->next_ = &item;
        item.next_ = nullptr;
        previous = &item;
    }
}
