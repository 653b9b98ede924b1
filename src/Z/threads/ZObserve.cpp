#include "Z/ZObserve.h"

#include <functional>

#include "Z/ZException.h"
#include "Z/threads/forked_child.h"
#include "Z/threads/persistent_guard.h"

namespace {

constexpr char sourceName[] = "src/Z/ZObserve";
constexpr unsigned int usualObservers = 2;
constexpr int owned = 1;

}  // namespace

ZObserverInterface::~ZObserverInterface() = default;
ZObservedParm::~ZObservedParm() = default;
Voyeur::~Voyeur() = default;

unsigned long Voyeur::hash() const { return reinterpret_cast<unsigned long>(observer); }

int Voyeur::compare(ZObject const& other) const {
    auto const* const voyeur = dynamic_cast<Voyeur const*>(&other);
    if (voyeur == nullptr) return ZObject::compare(other);
    if (observer == voyeur->observer) return 0;
    return std::less<ZObserverInterface const*>()(observer, voyeur->observer) ? -1 : 1;
}

ZObject* Voyeur::clone() const { return new Voyeur(*this); }

ZAbstractObservable::ZAbstractObservable() : observers(usualObservers, owned) {}
ZAbstractObservable::ZAbstractObservable(ZAbstractObservable const&) : ZAbstractObservable() {}
ZAbstractObservable& ZAbstractObservable::operator=(ZAbstractObservable const&) { return *this; }
ZAbstractObservable::~ZAbstractObservable() = default;

void ZAbstractObservable::addObserver(ZObserverInterface* o) {
    if (o == nullptr) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    ZPersistentGuard const guard(observersLock);
    Voyeur voyeur(o);
    if (observers.contains(&voyeur)) return;
    ZNoFork const whileChanged;
    observers.add(&voyeur);
}

void ZAbstractObservable::deleteObserver(ZObserverInterface* o) {
    ZPersistentGuard const guard(observersLock);
    Voyeur const voyeur(o);
    ZNoFork const whileChanged;
    observers.remove(&voyeur);
}

void ZAbstractObservable::deleteObservers() {
    ZPersistentGuard const guard(observersLock);
    ZNoFork const whileChanged;
    observers.removeAll();
}

unsigned int ZAbstractObservable::countObservers() const {
    ZPersistentGuard const guard(observersLock);
    return observers.size();
}

bool ZAbstractObservable::mayBeObserved() const {
    if (!observersLock.try_lock()) return true;
    ZPersistentGuard const guard(observersLock, std::adopt_lock);
    return !observers.isEmpty();
}

void ZAbstractObservable::notifyObservers(ZObservedParm const& parm) {
    ZPersistentGuard const guard(observersLock);
    if (observers.isEmpty()) return;
    // A copy, because an update may take observers out and so move those behind; each is looked up
    // again, because one that was taken out may be gone.
    ZArrayList const atStart(observers);
    for (unsigned int i = 0; i < atStart.size(); ++i) {
        auto const* const voyeur = static_cast<Voyeur const*>(atStart.get(i));
        if (observers.contains(voyeur)) voyeur->getObserver()->update(this, parm);
    }
}
