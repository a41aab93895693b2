// Scoped holders of the event and objects list locks, private to event/.
// The locks are taken and released through the modules' own wrappers so that
// every lock operation of a list goes through one place.
#ifndef MTE_LIST_GUARD_H
#define MTE_LIST_GUARD_H

template <void (*pfLock)(void), void (*pfUnlock)(void)>
class MTE_LIST_GUARD {
  public:
    MTE_LIST_GUARD() { pfLock(); }
    ~MTE_LIST_GUARD() { pfUnlock(); }
    MTE_LIST_GUARD(const MTE_LIST_GUARD&) = delete;
    MTE_LIST_GUARD& operator=(const MTE_LIST_GUARD&) = delete;
};

#endif  // MTE_LIST_GUARD_H
