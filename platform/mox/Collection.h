#pragma once
// Collections with the framework's operation family. A class exposes a collection attribute
// `x` through MOX_COLLECTION in its attribute list, which generates newX, xIs, xDel (by key
// and by iterator), xDelAll, x(key), xs() (the count), xIterator() and xNotifyIs; a map of
// counts also gets xInc(key, n).
//
// Iteration may delete the current entry: Iterator::deleteCurrent() removes it and the next
// ++ is then a no-op, so a loop of the form
//     for (auto it = c.iterator(); it; ++it) if (...) it.deleteCurrent();
// visits every entry once.
//
// Any other change while an iterator is out (an entry added or removed, the collection cleared
// or assigned) may leave that iterator pointing at freed memory. A collection counts such
// changes in changes(); a walker that must survive code it does not control (a script's
// iterator) notes the count and stops when it moves under it.
//
// For a class whose attribute list (see Attribute.h) holds a map of counts by prefix length,
//     C(routeCountByMask, RouteCountByMask, RouteCountByMaskMap)
// its users write
//     summary.routeCountByMaskIs(24, 10);       // set
//     summary.routeCountByMaskInc(24, 1);       // 11; an absent key starts at 0
//     summary.routeCountByMask(24);             // 11
//     summary.routeCountByMasks();              // 1 entry
//     for (auto it = summary.routeCountByMaskIterator(); it; ++it) use(it.key(), it.value());
//     summary.routeCountByMaskDel(24);          // or routeCountByMaskDelAll()

#include <functional>
#include <map>
#include <set>
#include <type_traits>
#include <unordered_map>

#include "platform/mox/CellMaps.h"
#include "platform/mox/MapCollection.h"
#include "platform/mox/VectorMap.h"

namespace Mox {

template <class K, class V, class Compare = std::less<K>>
using OrderedMap = MapCollection<std::map<K, V, Compare>>;

template <class K, class V, class Hash = std::hash<K>>
using HashMap = MapCollection<std::unordered_map<K, V, Hash>>;

template <class K, class Compare = std::less<K>>
using OrderedSet = SetCollection<std::set<K, Compare>>;

template <class T>
struct IsCollection : std::false_type {};
template <class S>
struct IsCollection<MapCollection<S>> : std::true_type {};
template <class S>
struct IsCollection<SetCollection<S>> : std::true_type {};
template <class K, class V, class C>
struct IsCollection<VectorMap<K, V, C>> : std::true_type {};
template <class K, class V>
struct IsCollection<DenseMap<K, V>> : std::true_type {};
template <class K, class V, class H>
struct IsCollection<FlatHashMap<K, V, H>> : std::true_type {};
template <class T>
concept Collection = IsCollection<T>::value;

}  // namespace Mox
