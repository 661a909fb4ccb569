// DtList: the engine's list of untyped pointers. The list owns its items, not what
// they point to.
//
//   DtList list;
//   list.add(&value);
//   for (DtListItem* item = list.first(); item; item = item->next()) use(item->data());
#pragma once

#include <memory>
#include <vector>

class DtList;

class DtListItem {
public:
    explicit DtListItem(void* data = nullptr) : data_(data) {}
    DtListItem* next() const { return next_; }
    void* data() const { return data_; }

private:
    friend class DtList;
    void* data_;
    DtListItem* next_ = nullptr;
};

class DtList {
public:
    DtList() = default;
    DtList(const DtList& other);
    DtList& operator=(const DtList& other);
    // A list's items may live inside it, so moving is copying.
    DtList(DtList&& other) : DtList(static_cast<const DtList&>(other)) {}
    DtList& operator=(DtList&& other) { return *this = static_cast<const DtList&>(other); }
    virtual ~DtList() = default;

    // Appends and answers the new item. Inline: lists of attributes are made by the
    // million, and most items land in the list's own slots.
    DtListItem* add(void* data) {
        DtListItem* added =
            freeSlots_.empty() && nextSlot_ != slotsEnd_ ? nextSlot_++ : freshSlot();
        *added = DtListItem(data);
        (tail_ ? tail_->next_ : head_) = added;
        tail_ = added;
        ++count_;
        return added;
    }
    DtListItem* first() { return head_; }
    const DtListItem* first() const { return head_; }
    // Removes an item of this list; answers false for an item it does not hold.
    bool remove(DtListItem* item);
    int count() const { return count_; }

    // Keeps `storage` alive as long as this list or a copy of it: for a list whose items
    // point into storage made for it (an object's attributes read as a list).
    void keep(std::shared_ptr<const void> storage) { storage_ = std::move(storage); }

private:
    DtListItem* freshSlot();
    void clear();

    // Items never move while the list lives: the first few inside the list, so that the
    // short lists the engine makes by the million take no allocation, later ones in
    // blocks of their own. Slots of removed items are used again.
    static constexpr size_t InlineItems = 8;
    DtListItem inline_[InlineItems];
    std::vector<std::unique_ptr<DtListItem[]>> blocks_;
    DtListItem* nextSlot_ = inline_;
    DtListItem* slotsEnd_ = inline_ + InlineItems;
    std::vector<DtListItem*> freeSlots_;
    DtListItem* head_ = nullptr;
    DtListItem* tail_ = nullptr;
    int count_ = 0;
    std::shared_ptr<const void> storage_;
};
