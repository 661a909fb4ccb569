#include "hxutil/DtList.h"

DtList::DtList(const DtList& other) {
    *this = other;
}

DtList& DtList::operator=(const DtList& other) {
    if (this == &other)
        return *this;
    clear();
    for (const DtListItem* item = other.head_; item; item = item->next_)
        add(item->data_);
    storage_ = other.storage_;
    return *this;
}

void DtList::clear() {
    blocks_.clear();
    freeSlots_.clear();
    nextSlot_ = inline_;
    slotsEnd_ = inline_ + InlineItems;
    head_ = tail_ = nullptr;
    count_ = 0;
    storage_.reset();
}

DtListItem* DtList::freshSlot() {
    if (!freeSlots_.empty()) {
        DtListItem* slot = freeSlots_.back();
        freeSlots_.pop_back();
        return slot;
    }
    if (nextSlot_ == slotsEnd_) {
        // Blocks double with the list, so adding stays amortised constant time.
        const size_t size = InlineItems << blocks_.size();
        blocks_.emplace_back(new DtListItem[size]);
        nextSlot_ = blocks_.back().get();
        slotsEnd_ = nextSlot_ + size;
    }
    return nextSlot_++;
}

bool DtList::remove(DtListItem* item) {
    DtListItem* previous = nullptr;
    for (DtListItem* current = head_; current; previous = current, current = current->next_) {
        if (current != item)
            continue;
        (previous ? previous->next_ : head_) = current->next_;
        if (tail_ == current)
            tail_ = previous;
        current->next_ = nullptr;
        freeSlots_.push_back(current);
        --count_;
        return true;
    }
    return false;
}
