// DtList: the engine's list of untyped pointers. The list owns its items, not what
// they point to.
//
//   DtList list;
//   list.add(&value);
//   for (DtListItem* item = list.first(); item; item = item->next()) use(item->data());
#pragma once

#include <list>

class DtList;

class DtListItem {
public:
    explicit DtListItem(void* data) : data_(data) {}
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
    virtual ~DtList() = default;

    // Appends and answers the new item.
    DtListItem* add(void* data);
    DtListItem* first();
    const DtListItem* first() const;
    // Removes an item of this list; answers false for an item it does not hold.
    bool remove(DtListItem* item);
    int count() const { return static_cast<int>(items_.size()); }

private:
    void relink();
    // std::list keeps item addresses stable while others are added or removed.
    std::list<DtListItem> items_;
};
