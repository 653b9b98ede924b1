/// Observers: objects that are told when another object changes.
#ifndef Z_ZOBSERVE_H
#define Z_ZOBSERVE_H

#include "Z/ztags.h"

#include "Z/ZList.h"
#include "Z/ZLock.h"
#include "Z/ZObject.h"
#include "Z/zexport.h"

class ZAbstractObservable;

/// Base of what an observer is told; each kind of notice has its own class.
class ZFC_API ZObservedParm : public ZObject {
  public:
    ~ZObservedParm() override;
};

/// What wants to be told.
class ZFC_API ZObserverInterface {
  public:
    /// Called by `source` when it has changed; `parm` says how and lives during the call only. The
    /// lock over the source's observers is held: what the observer waits for must not need it in
    /// another thread.
    virtual void update(ZAbstractObservable* source, ZObservedParm const& parm) = 0;

  protected:
    ~ZObserverInterface();  // observers are not deleted through this interface
};

/// What can be observed. Observers are not owned and must be deleted from the list before they end.
/// All operations may be called from any thread; each waits while another thread is in one of them,
/// a notification with all its observers included, and throws as ZLock::lock() does.
class ZFC_API ZObservableInterface {
  public:
    // in slot order: do not sort
    /// Registers `o`, behind those registered before; does nothing when it is registered. Throws
    /// ZInvalidParameterException (message 22) for null, ZOutOfMemoryException (message 1).
    virtual void addObserver(ZObserverInterface* o) = 0;
    /// Forgets `o`; does nothing when it is not registered.
    virtual void deleteObserver(ZObserverInterface* o) = 0;
    /// Forgets all observers.
    virtual void deleteObservers() = 0;
    /// Number of registered observers.
    [[nodiscard]] virtual unsigned int countObservers() const = 0;
    /// Calls update() of every observer, in the order of registration. An observer may take itself
    /// or others out meanwhile: who is no longer registered is not called; who is added meanwhile
    /// is called from the next notification on. What an observer throws ends the notification and
    /// is passed on. Throws ZOutOfMemoryException (message 1) before anybody is called.
    virtual void notifyObservers(ZObservedParm const& parm) = 0;

  protected:
    ~ZObservableInterface() = default;  // observables are not deleted through this interface
};

/// How an observable's list holds an observer. Two are equal when they hold the same one.
class ZFC_API Voyeur : public ZObject {
  public:
    /// `watching` is not owned.
    explicit Voyeur(ZObserverInterface* watching) : observer(watching) {}

    // in slot order: do not sort
    ~Voyeur() override;
    /// The observer's address as a number.
    [[nodiscard]] unsigned long hash() const override;
    /// -1, 0 or 1 by the observers' addresses; an object of another class is ordered by its own
    /// address.
    [[nodiscard]] int compare(ZObject const& other) const override;
    [[nodiscard]] ZObject* clone() const override;

    /// The observer held; not owned.
    [[nodiscard]] ZObserverInterface* getObserver() const { return observer; }

  private:
    ZObserverInterface* observer;  // not owned
};

/// Base of everything observable. A copy starts without observers, and assignment leaves both
/// sides' observers as they are: they watch an object, not its content.
class ZFC_API ZAbstractObservable : public ZObservableInterface {
  public:
    /// The library's own way to the lock, in the child of a fork. No friend: with one, compilers
    /// take the protected destructor for one that anybody may call.
    struct OverFork;

    // in slot order: do not sort
    void addObserver(ZObserverInterface* o) override;
    void deleteObserver(ZObserverInterface* o) override;
    void deleteObservers() override;
    [[nodiscard]] unsigned int countObservers() const override;
    void notifyObservers(ZObservedParm const& parm) override;

  protected:
    ZAbstractObservable();
    ZAbstractObservable(ZAbstractObservable const& other);
    ZAbstractObservable& operator=(ZAbstractObservable const& other);
    ~ZAbstractObservable();

    /// Whether anybody may be registered: true as well when another thread is in one of the
    /// operations. Never waits, so that it can be asked under locks that observers take.
    [[nodiscard]] bool mayBeObserved() const;

  private:
    ZArrayList observers ZGUARDED_BY(observersLock);  // one Voyeur for each, owned
    mutable ZLock observersLock;                      // held for the whole of every operation
};

#endif
