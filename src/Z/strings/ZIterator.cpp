#include "Z/ZIterator.h"

ZIterator::~ZIterator() = default;
ZAbstractIterator::~ZAbstractIterator() = default;

ZObject* ZAbstractIterator::findNext(ZObject const& target) {
    while (hasMore()) {
        ZObject* const member = getNext();
        if (member != nullptr && target.equals(*member)) return member;
    }
    return nullptr;
}
