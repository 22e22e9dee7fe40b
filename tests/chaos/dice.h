#ifndef TARVISNET_TESTS_DICE_H
#define TARVISNET_TESTS_DICE_H

#include <QtCore/QtGlobal>

#include <initializer_list>
#include <iterator>
#include <random>
#include <type_traits>

/// A source of chance that gives the same numbers for the same seed on every machine.
class Dice {
public:
    explicit Dice(quint64 seed)
        : m_engine(seed)
    {
    }

    quint64 number() { return m_engine(); }
    /// 0 to \a count - 1. That small numbers are a trace more likely does no harm.
    int below(int count) { return int(m_engine() % quint64(count)); }
    int between(int least, int most) { return least + below(most - least + 1); }
    bool oneIn(int count) { return below(count) == 0; }
    template <typename List>
    auto &pick(const List &list)
    {
        return *(std::begin(list) + below(int(std::size(list))));
    }
    template <typename T>
    T pick(std::initializer_list<T> list)
    {
        return *(list.begin() + below(int(list.size())));
    }
    /// As pick(), each entry as often as its field weight says.
    template <typename List>
    auto &pickByWeight(const List &list)
    {
        using Entry = std::remove_reference_t<decltype(*std::begin(list))>;
        return pickByWeight(list, &Entry::weight);
    }
    /// The same with another field.
    template <typename List, typename Entry>
    auto &pickByWeight(const List &list, int Entry::*weight)
    {
        int total = 0;
        for (const auto &entry : list)
            total += entry.*weight;
        int left = below(total);
        auto entry = std::begin(list);
        for (; left >= (*entry).*weight; ++entry)
            left -= (*entry).*weight;
        return *entry;
    }

private:
    std::mt19937_64 m_engine;
};

#endif // TARVISNET_TESTS_DICE_H
