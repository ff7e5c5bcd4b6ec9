/// @file
/// Lists: linked (list.h), of pairs in one array (arraylst.h), and of strings packed back to back (strlist.h,
/// strvec.h).

#ifndef GENERAL_LIST_HPP
#define GENERAL_LIST_HPP

#include "general/arraylst.h"
#include "general/core.hpp"
#include "general/list.h"
#include "general/strlist.h"
#include "general/strvec.h"

#include <cstring>
#include <new>
#include <string_view>

namespace general {

namespace c {
using ArrayLst = ::GENERAL_TYPE(ArrayLst);
using ArrayLstStat = ::GENERAL_TYPE(ArrayLstStat);
using List = ::GENERAL_TYPE(List);
using ListNode = ::GENERAL_TYPE(ListNode);
using StrList = ::GENERAL_TYPE(StrList);
} // namespace c

/// @cond
namespace detail {

/// What lies in a node of a linked list.
template<typename T>
struct ListItem {
    c::ListNode links;
    T value;

    static ListItem *of(c::ListNode *node) noexcept { return reinterpret_cast<ListItem *>(node); }
};

template<typename T>
struct ListTraits {
    using Type = c::List;
    /// True for the 1 of ListDestroy, which is no enumeration's.
    static bool destroy(Type *list)
    {
        if constexpr (!std::is_trivially_destructible_v<T>)
            for (c::ListNode *node = list->links.next; node != &list->links; node = node->next)
                ListItem<T>::of(node)->value.~T();
        return ListDestroy(list) != 0;
    }
};

struct ArrayListTraits {
    using Type = c::ArrayLst;
    static Result<c::ArrayLstStat> destroy(Type *list) { return Result<c::ArrayLstStat>(ArrayLstDestroy(list)); }
};

struct StringVectorTraits {
    using Type = char *;
    static void destroy(Type *vector) { StrVecDestroy(vector); }
};

} // namespace detail
/// @endcond

/// Doubly linked list: `List...`. The values lie in the list's nodes, behind their links.
template<typename T>
class List : public Owner<detail::ListTraits<T>> {
    using Base = Owner<detail::ListTraits<T>>;
    using Item = detail::ListItem<T>;

public:
    /// A place in the list, good until its value is erased.
    class Iterator {
    public:
        using iterator_category = std::bidirectional_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = T *;
        using reference = T &;

        Iterator() noexcept = default;
        explicit Iterator(c::ListNode *node) noexcept : node_(node) {}
        T &operator*() const noexcept { return Item::of(node_)->value; }
        T *operator->() const noexcept { return &**this; }
        Iterator &operator++() noexcept { return *this = Iterator(node_->next); }
        Iterator &operator--() noexcept { return *this = Iterator(node_->previous); }
        Iterator operator++(int) noexcept { return Iterator(std::exchange(node_, node_->next)); }
        Iterator operator--(int) noexcept { return Iterator(std::exchange(node_, node_->previous)); }
        /// The node's links, for ListInsert and its like.
        c::ListNode *get() const noexcept { return node_; }
        friend bool operator==(Iterator a, Iterator b) noexcept { return a.node_ == b.node_; }
        friend bool operator!=(Iterator a, Iterator b) noexcept { return a.node_ != b.node_; }

    private:
        c::ListNode *node_ = nullptr;
    };

    using iterator = Iterator;

    /// ListMake. Empty if memory is exhausted.
    List() noexcept : Base(adopt, ListMake(sizeof(Item))) {}
    /// Takes over what another list of this type has released.
    List(Adopt, c::List *list) noexcept : Base(adopt, list) {}

    /// ListMakeNode and ListInsert: a value made from the arguments, in front of a place; end() if memory is exhausted.
    template<typename... Arguments>
    Iterator emplace(Iterator position, Arguments &&...arguments)
    {
        auto *item = static_cast<Item *>(ListMakeNode(this->get()));
        if (item == nullptr)
            return end();
        Unlinked unlinked{this->get(), item};
        ::new (&item->value) T(std::forward<Arguments>(arguments)...);
        unlinked.item = nullptr;
        ListInsert(position.get(), &item->links);
        return Iterator(&item->links);
    }
    Iterator push_back(T value) { return emplace(end(), std::move(value)); }
    Iterator push_front(T value) { return emplace(begin(), std::move(value)); }
    /// ListRmvItem and ListFreeNode: gives the place that follows.
    Iterator erase(Iterator position) noexcept
    {
        Iterator next(position.get()->next);
        position->~T();
        ListRmvItem(position.get());
        ListFreeNode(this->get(), position.get());
        return next;
    }
    Iterator begin() const noexcept { return Iterator(*this ? this->get()->links.next : nullptr); }
    Iterator end() const noexcept { return Iterator(*this ? &this->get()->links : nullptr); }
    bool empty() const noexcept { return begin() == end(); }

private:
    /// A node that goes back to the list if its value cannot be made.
    struct Unlinked {
        c::List *list;
        Item *item;
        ~Unlinked() { ListFreeNode(list, item); }
    };
};

/// List of pairs in one array: `ArrayLst...`. Key and Object are pointers, or numbers of at most 32 bits.
template<typename Key, typename Object>
class ArrayList : public Owner<detail::ArrayListTraits> {
public:
    using Result = general::Result<c::ArrayLstStat>;

    /// One pair.
    struct Pair {
        Key key;
        Object object;
    };
    using Outcome = general::Outcome<Pair, c::ArrayLstStat>;
    /// ArrayLstGet with one index after the other: `for (auto [key, object] : list)`. The cursor stays where it is.
    class Iterator : public detail::ValueIterator<Pair> {
    public:
        Iterator(const c::ArrayLst *list, uint32_t index) noexcept : list_(list), index_(index) {}
        Pair operator*() const noexcept
        {
            uint32_t key = 0, object = 0;
            ArrayLstGet(list_, &key, &object, index_);
            return {detail::fromWord<Key>(key), detail::fromWord<Object>(object)};
        }
        Iterator &operator++() noexcept
        {
            ++index_;
            return *this;
        }
        friend bool operator==(Iterator a, Iterator b) noexcept { return a.index_ == b.index_; }
        friend bool operator!=(Iterator a, Iterator b) noexcept { return a.index_ != b.index_; }

    private:
        const c::ArrayLst *list_;
        uint32_t index_;
    };

    /// ArrayLstCreate. Empty if memory is exhausted.
    ArrayList() noexcept : Owner(adopt, ArrayLstCreate()) {}
    /// Takes over a list of such pairs.
    ArrayList(Adopt, c::ArrayLst *list) noexcept : Owner(adopt, list) {}

    /// ArrayLstAdd.
    Result push_back(Key key, Object object) noexcept { return Result(ArrayLstAdd(get(), word(key), word(object))); }
    /// ArrayLstSeek: the first pair with a key; the cursor is behind it.
    Outcome find(Key key) noexcept
    {
        return outcome([&](uint32_t *k, uint32_t *object) { return ArrayLstSeek(get(), *k = word(key), object); });
    }
    /// ArrayLstSeekObj: the first pair with an object; the cursor is behind it.
    Outcome findObject(Object object) noexcept
    {
        return outcome([&](uint32_t *key, uint32_t *o) { return ArrayLstSeekObj(get(), key, *o = word(object)); });
    }
    /// ArrayLstRemove: removes the first pair with a key, and hands it out.
    Outcome erase(Key key) noexcept
    {
        return outcome([&](uint32_t *k, uint32_t *object) { return ArrayLstRemove(get(), *k = word(key), object); });
    }
    /// ArrayLstGet: the pair at an index.
    Outcome at(uint32_t index) const noexcept
    {
        return outcome([&](uint32_t *key, uint32_t *object) { return ArrayLstGet(get(), key, object, index); });
    }
    /// ArrayLstRemoveAll.
    Result clear() noexcept { return Result(ArrayLstRemoveAll(get())); }
    /// ArrayLstSize.
    uint32_t size() const noexcept
    {
        uint32_t count = 0;
        ArrayLstSize(get(), &count);
        return count;
    }
    bool empty() const noexcept { return size() == 0; }
    Iterator begin() const noexcept { return {get(), 0}; }
    Iterator end() const noexcept { return {get(), size()}; }

private:
    template<typename T>
    static uint32_t word(T value) noexcept
    {
        return static_cast<uint32_t>(detail::toWord(value));
    }
    template<typename Call>
    static Outcome outcome(Call call) noexcept
    {
        return Outcome([&](Pair *pair) {
            uint32_t key = 0, object = 0;
            uint32_t result = call(&key, &object);
            *pair = {detail::fromWord<Key>(key), detail::fromWord<Object>(object)};
            return result;
        });
    }
};

/// Strings packed back to back: `StrList...`. As large as the C record, which it holds.
class StringList {
public:
    /// Walks the strings: `for (std::string_view string : list)`.
    class Iterator : public detail::ValueIterator<std::string_view> {
    public:
        Iterator(const char *string, const char *end) noexcept : end_(end) { stand(string); }
        std::string_view operator*() const noexcept { return string_; }
        Iterator &operator++() noexcept
        {
            stand(string_.data() + string_.size() + 1);
            return *this;
        }
        friend bool operator==(Iterator a, Iterator b) noexcept { return a.string_.data() == b.string_.data(); }
        friend bool operator!=(Iterator a, Iterator b) noexcept { return !(a == b); }

    private:
        void stand(const char *string) noexcept { string_ = {string, string != end_ ? std::strlen(string) : 0}; }

        std::string_view string_;
        const char *end_;
    };

    /// StrListInit.
    explicit StringList(uint32_t size = 0, uint32_t growthIncrement = 256) noexcept
    {
        StrListInit(&list_, size, growthIncrement);
    }
    StringList(StringList &&other) noexcept : list_(other.release()) {}
    StringList &operator=(StringList &&other) noexcept
    {
        StringList moved(std::move(other));
        std::swap(list_, moved.list_);
        return *this;
    }
    ~StringList() { StrListDestroy(&list_); }

    /// StrListAppend: the copy, until the next is appended; null if memory is exhausted.
    char *push_back(const char *string) noexcept { return StrListAppend(&list_, string); }
    uint32_t size() const noexcept { return list_.count; }
    bool empty() const noexcept { return list_.count == 0; }
    Iterator begin() const noexcept { return {list_.buffer, list_.buffer + list_.used}; }
    Iterator end() const noexcept { return {list_.buffer + list_.used, list_.buffer + list_.used}; }
    /// The record, for the C functions.
    c::StrList *get() noexcept { return &list_; }
    /// Lets go of the record's contents, which the caller destroys. The list is empty and can be used on.
    [[nodiscard]] c::StrList release() noexcept { return std::exchange(list_, c::StrList{}); }

private:
    c::StrList list_;
};

/// Array of pointers to the strings of a list, ended by a null pointer: `StrVec...`.
class StringVector : public Owner<detail::StringVectorTraits> {
public:
    /// StrVecCreate. Empty if memory is exhausted. The list must outlive it, without growing.
    explicit StringVector(StringList &list) noexcept : Owner(adopt, StrVecCreate(list.get()->buffer, list.size())) {}
    using Owner::Owner;
};

#if GENERAL_EXCEPTIONS
/// @cond
template<>
inline constexpr const char *statusName<c::ArrayLstStat> = "ArrayLstStat";
/// @endcond
#endif

} // namespace general

#endif
