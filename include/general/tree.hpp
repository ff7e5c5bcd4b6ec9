/// @file
/// Ordered dictionary over redblack.h: with keys of somebody else's, or with strings of its own.
///
/// Both are walked in either direction, `for (auto [key, value] : tree)` and `tree.reversed()`. An iterator is a leaf:
/// it holds until that leaf is erased, whatever else happens to the tree. False is the end.

#ifndef GENERAL_TREE_HPP
#define GENERAL_TREE_HPP

#include "general/core.hpp"
#include "general/redblack.h"

#include <new>
#include <string>
#include <string_view>

namespace general {

namespace c {
using RbNode = ::GENERAL_TYPE(RbNode);
}

/// @cond
namespace detail {

struct TreeTraits {
    using Type = c::RbNode;
    static void destroy(Type *tree) { RbDestroy(tree); }
};

/// How keys are kept in leaves and looked up. Compare is void where the library knows the order.
template<typename Key, typename Compare>
struct Keys;

template<>
struct Keys<const char *, void> {
    static const char *of(const c::RbNode *leaf) { return static_cast<const char *>(RbKey(leaf)); }
    static c::RbNode *exact(c::RbNode *tree, const char *key) { return RbExact(tree, key); }
    static c::RbNode *position(c::RbNode *tree, const char *key, int32_t &found)
    {
        return RbFindKey_n(tree, key, &found);
    }
};

template<>
struct Keys<int32_t, void> {
    static int32_t of(const c::RbNode *leaf) { return RbKeyI(leaf); }
    static c::RbNode *exact(c::RbNode *tree, int32_t key) { return RbExactI(tree, key); }
    static c::RbNode *position(c::RbNode *tree, int32_t key, int32_t &found) { return RbFindKeyI_n(tree, key, &found); }
};

template<typename T, typename Compare>
struct Keys<const T *, Compare> {
    static_assert(std::is_empty_v<Compare> && std::is_default_constructible_v<Compare>, "a comparison has no state");

    static const T *of(const c::RbNode *leaf) { return static_cast<const T *>(RbKey(leaf)); }
    static c::RbNode *exact(c::RbNode *tree, const T *key)
    {
        return search(key, [tree](const void *sought) { return RbExactG(tree, sought, compare); });
    }
    static c::RbNode *position(c::RbNode *tree, const T *key, int32_t &found)
    {
        return search(key, [&](const void *sought) { return RbFindKeyG_n(tree, sought, compare, &found); });
    }

private:
    /// What the library hands to the comparison as the key that is looked for.
    struct Sought {
        const T *key;
        Carrier carrier;
    };

    template<typename Search>
    static c::RbNode *search(const T *key, Search find)
    {
        if constexpr (neverThrows<Compare, T>) {
            return find(key);
        } else {
            Sought sought{key, {}};
            c::RbNode *node = find(&sought);
            sought.carrier.rethrow();
            return node;
        }
    }

    static int order(const T &a, const T &b)
    {
        if constexpr (std::is_same_v<std::invoke_result_t<Compare, const T &, const T &>, bool>)
            return Compare{}(a, b) ? -1 : Compare{}(b, a) ? 1 : 0;
        else
            return Compare{}(a, b);
    }

    static int GENERAL_CALL compare(const void *searchKey, const void *nodeKey) noexcept
    {
        const T &key = *static_cast<const T *>(nodeKey);
        if constexpr (neverThrows<Compare, T>) {
            return order(*static_cast<const T *>(searchKey), key);
        } else {
            auto *sought = const_cast<Sought *>(static_cast<const Sought *>(searchKey));
            int result = 0; // which ends the search, when it throws
            sought->carrier.guard([&] { result = order(*sought->key, key); });
            return result;
        }
    }
};

template<typename Pair, bool Backwards>
class LeafIterator : public ValueIterator<Pair> {
public:
    LeafIterator() noexcept = default;
    explicit LeafIterator(c::RbNode *leaf) noexcept : leaf_(leaf) {}

    Pair operator*() const noexcept { return {key(), value()}; }
    auto key() const noexcept { return Pair::keyOf(leaf_); }
    decltype(Pair::value) value() const noexcept { return Pair::valueOf(leaf_); }
    LeafIterator &operator++() noexcept
    {
        leaf_ = Backwards ? RbPrev(leaf_) : RbNext(leaf_);
        return *this;
    }
    explicit operator bool() const noexcept { return leaf_ != nullptr; }
    c::RbNode *get() const noexcept { return leaf_; }
    friend bool operator==(LeafIterator a, LeafIterator b) noexcept { return a.leaf_ == b.leaf_; }
    friend bool operator!=(LeafIterator a, LeafIterator b) noexcept { return a.leaf_ != b.leaf_; }

private:
    c::RbNode *leaf_ = nullptr;
};

/// What both kinds of tree have.
template<typename Traits, typename Pair>
class Leaves : public Owner<Traits> {
public:
    using iterator = LeafIterator<Pair, false>;
    /// The leaves from the last to the first.
    struct Reversed {
        const c::RbNode *tree;
        auto begin() const noexcept { return LeafIterator<Pair, true>(tree != nullptr ? RbLast(tree) : nullptr); }
        auto end() const noexcept { return LeafIterator<Pair, true>(); }
    };

    using Owner<Traits>::Owner;

    iterator begin() const noexcept { return iterator(*this ? RbFirst(this->get()) : nullptr); }
    iterator end() const noexcept { return iterator(); }
    Reversed reversed() const noexcept { return {this->get()}; }
    bool empty() const noexcept { return !begin(); }
};

} // namespace detail
/// @endcond

/// What an iterator of a Tree gives: the key and the value of a leaf.
template<typename Key, typename Value, typename Compare = void>
struct TreePair {
    Key key;
    Value value;
    /// @cond
    static Key keyOf(const c::RbNode *leaf) { return detail::Keys<Key, Compare>::of(leaf); }
    static Value valueOf(const c::RbNode *leaf)
    {
        return detail::fromWord<Value>(reinterpret_cast<std::uintptr_t>(RbVal(leaf)));
    }
    /// @endcond
};

/// Tree whose keys and values are the caller's: `Rb...`.
///
/// Key is `const char *`, `int32_t`, or `const T *` with a Compare: a function object without state that takes two T
/// and gives a bool, as std::less does, or an int, as RbCompare does. What it throws comes out of the call that looked
/// a key up. Value is a pointer, or a number of at most 32 bits. Calls need a tree that is not empty as an owner, but
/// for loops and empty().
template<typename Key, typename Value, typename Compare = void>
class Tree : public detail::Leaves<detail::TreeTraits, TreePair<Key, Value, Compare>> {
    using Base = detail::Leaves<detail::TreeTraits, TreePair<Key, Value, Compare>>;
    using Keys = detail::Keys<Key, Compare>;

public:
    using iterator = typename Base::iterator;

    /// RbCreate. Empty if memory is exhausted.
    Tree() noexcept : Base(adopt, RbCreate()) {}
    /// Takes over a tree of this order.
    Tree(Adopt, c::RbNode *tree) noexcept : Base(adopt, tree) {}

    /// RbExact: a leaf with a key, or the end.
    iterator find(Key key) const { return iterator(Keys::exact(this->get(), key)); }
    /// Whether there is a leaf with a key.
    bool contains(Key key) const { return static_cast<bool>(find(key)); }
    /// RbFindKey: the first leaf whose key is not less, or the end.
    iterator lower_bound(Key key) const
    {
        int32_t found = 0;
        c::RbNode *position = Keys::position(this->get(), key, found);
        return iterator(position != this->get() ? position : nullptr);
    }
    /// RbInsert_b, unless the key is there. Gives the leaf with the key, or the end if memory is exhausted, and
    /// whether it is new.
    std::pair<iterator, bool> insert(Key key, Value value)
    {
        int32_t found = 0;
        c::RbNode *position = Keys::position(this->get(), key, found);
        if (found)
            return {iterator(position), false};
        auto *leaf = RbInsert_b(position, reinterpret_cast<const void *>(detail::toWord(key)),
                                reinterpret_cast<void *>(detail::toWord(value)));
        return {iterator(leaf), leaf != nullptr};
    }
    /// RbDeleteNode: gives the leaf that follows.
    iterator erase(iterator position) noexcept
    {
        iterator next = position;
        ++next;
        RbDeleteNode(position.get());
        return next;
    }
    /// Erases a leaf with a key, if there is one.
    bool erase(Key key)
    {
        iterator position = find(key);
        if (position)
            erase(position);
        return static_cast<bool>(position);
    }
};

/// @cond
namespace detail {

/// A value, in front of its key's characters and their final zero.
template<typename Value>
struct Entry {
    static_assert(alignof(Value) <= alignof(std::max_align_t), "entries are aligned as operator new does it");

    std::size_t length;
    Value value;

    char *key() noexcept { return reinterpret_cast<char *>(this + 1); }
    static Entry *of(const c::RbNode *leaf) { return static_cast<Entry *>(RbVal(leaf)); }
    static void destroy(Entry *entry) noexcept
    {
        entry->~Entry();
        ::operator delete(entry);
    }
};

template<typename Value>
struct StringTreeTraits {
    using Type = c::RbNode;
    static void destroy(Type *tree)
    {
        for (auto *leaf = RbFirst(tree); leaf != nullptr; leaf = RbNext(leaf))
            Entry<Value>::destroy(Entry<Value>::of(leaf));
        RbDestroy(tree);
    }
};

template<typename Value>
struct StringPair {
    std::string_view key;
    Value &value;
    static std::string_view keyOf(const c::RbNode *leaf)
    {
        auto *entry = Entry<Value>::of(leaf);
        return {entry->key(), entry->length};
    }
    static Value &valueOf(const c::RbNode *leaf) { return Entry<Value>::of(leaf)->value; }
};

/// Orders a text of known length as RbFindKey would.
inline int GENERAL_CALL compareText(const void *searchKey, const void *nodeKey) noexcept
{
    const char *key = static_cast<const char *>(nodeKey);
    for (char character : *static_cast<const std::string_view *>(searchKey)) {
        auto sought = static_cast<unsigned char>(character);
        auto other = static_cast<unsigned char>(*key++);
        if (sought != other || other == 0)
            return sought < other ? -1 : 1;
    }
    return *key != 0 ? -1 : 0;
}

} // namespace detail
/// @endcond

/// Tree that keeps copies of its string keys, and values of any type beside them. One block of memory for each pair
/// comes from operator new. Keys end at their first zero byte. Adopt what another such tree has released, nothing else.
template<typename Value>
class Tree<std::string, Value, void>
    : public detail::Leaves<detail::StringTreeTraits<Value>, detail::StringPair<Value>> {
    using Base = detail::Leaves<detail::StringTreeTraits<Value>, detail::StringPair<Value>>;
    using Entry = detail::Entry<Value>;

public:
    using iterator = typename Base::iterator;

    /// RbCreate. Empty if memory is exhausted.
    Tree() noexcept : Base(adopt, RbCreate()) {}
    /// Takes over what another tree of this type has released.
    Tree(Adopt, c::RbNode *tree) noexcept : Base(adopt, tree) {}

    /// RbExact: the leaf with a key, or the end. A string that ends with a zero byte is found quicker.
    iterator find(const char *key) const noexcept { return iterator(RbExact(this->get(), key)); }
    iterator find(std::string_view key) const noexcept
    {
        return iterator(RbExactG(this->get(), &key, detail::compareText));
    }
    /// Whether there is a leaf with a key.
    template<typename Text>
    bool contains(const Text &key) const noexcept
    {
        return static_cast<bool>(find(key));
    }
    /// Finds a key, or inserts a copy of it with a value that is made from the arguments. Gives the leaf, or the end if
    /// memory is exhausted, and whether it is new.
    template<typename Text, typename... Arguments>
    std::pair<iterator, bool> try_emplace(const Text &key, Arguments &&...arguments)
    {
        int32_t found = 0;
        c::RbNode *position;
        std::string_view text(key);
        if constexpr (std::is_convertible_v<const Text &, const char *>) {
            position = RbFindKey_n(this->get(), key, &found);
        } else {
            text = text.substr(0, text.find('\0'));
            position = RbFindKeyG_n(this->get(), &text, detail::compareText, &found);
        }
        if (found)
            return {iterator(position), false};
        Block block{::operator new(sizeof(Entry) + text.size() + 1, std::nothrow)};
        if (block.memory == nullptr)
            return {};
        auto *entry = ::new (block.memory) Entry{text.size(), Value(std::forward<Arguments>(arguments)...)};
        block.memory = nullptr;
        entry->key()[text.copy(entry->key(), text.size())] = '\0';
        auto *leaf = RbInsert_b(position, entry->key(), entry);
        if (leaf == nullptr)
            Entry::destroy(entry);
        return {iterator(leaf), leaf != nullptr};
    }
    /// RbDeleteNode, and the end of the key and the value: gives the leaf that follows.
    iterator erase(iterator position) noexcept
    {
        iterator next = position;
        ++next;
        Entry *entry = Entry::of(position.get());
        RbDeleteNode(position.get());
        Entry::destroy(entry);
        return next;
    }
    /// Erases the leaf with a key, if there is one.
    template<typename Text, typename = std::enable_if_t<std::is_convertible_v<const Text &, std::string_view>>>
    bool erase(const Text &key) noexcept
    {
        iterator position = find(key);
        if (position)
            erase(position);
        return static_cast<bool>(position);
    }

private:
    /// @cond
    struct Block {
        void *memory;
        ~Block() { ::operator delete(memory); }
    };
    /// @endcond
};

#if GENERAL_EXCEPTIONS
/// The leaf that insert() or try_emplace() gave, or std::bad_alloc.
template<typename Pair>
detail::LeafIterator<Pair, false> check(const std::pair<detail::LeafIterator<Pair, false>, bool> &inserted)
{
    if (!inserted.first)
        throw std::bad_alloc();
    return inserted.first;
}
#endif

} // namespace general

#endif
