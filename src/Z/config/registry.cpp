#include "Z/ZException.h"
#include "Z/ZKeyMap.h"
#include "Z/ZList.h"
#include "Z/ZProperties.h"
#include "Z/config/properties_edit.h"
#include "Z/threads/forked_child.h"

namespace {

constexpr char sourceName[] = "src/Z/ZProperties";
constexpr unsigned int expectedFiles = 20;

void deleteMembers(ZArrayList const& list) {
    for (unsigned int i = 0; i < list.size(); ++i)
        delete list.get(i);
}

}  // namespace

ZLock& ZPropRegistry::registryLock() { return ZForkedChild::own(ZOwnLock::registry); }

ZPropRegistry::ZPropRegistry() : guard(registryLock()) {}

ZPropRegistry::~ZPropRegistry() = default;

ZPropertiesFactoryInterface::~ZPropertiesFactoryInterface() = default;

ZAbstractPropertiesFactory::ZAbstractPropertiesFactory()
    : objects(std::make_unique<ZHashKeyMap>(expectedFiles, 0)) {}

ZAbstractPropertiesFactory::~ZAbstractPropertiesFactory() {
    ZArrayList names(expectedFiles, 0);
    ZArrayList made(expectedFiles, 0);
    objects->listKeys(names);
    objects->listObjects(made);
    {
        ZNoFork const whileChanged;
        // Emptied first: it must not point at what is deleted below.
        objects->removeAll();
    }
    deleteMembers(names);
    deleteMembers(made);
}

ZProperties* ZAbstractPropertiesFactory::find(char const* file) const {
    ZLCString const name(file);
    return static_cast<ZProperties*>(objects->getEntry(&name));
}

void ZAbstractPropertiesFactory::enter(char const* file, std::unique_ptr<ZProperties> properties) {
    auto name = std::make_unique<ZLCString>(file);
    ZNoFork const whileChanged;
    objects->putEntry(name.get(), properties.get());
    static_cast<void>(name.release());
    static_cast<void>(properties.release());
}

ZProperties* ZProperties::getPropertiesFor(char const* file, ZAbstractPropertiesFactory& factory,
                                           int forceReload) {
    zfc::config::require(file, sourceName, __LINE__);
    bool isNew = false;
    ZProperties* const found = findOrLoad(file, factory, isNew);
    // Without the registry's lock: whoever holds the object's may ask for another file.
    if (!isNew) found->refresh(forceReload);
    return found;
}

ZProperties* ZProperties::findOrLoad(char const* file, ZAbstractPropertiesFactory& factory,
                                     bool& isNew) {
    ZPropRegistry const guard;
    ZProperties* const known = factory.find(file);
    if (known != nullptr && !ZForkedChild::isLeftBehind(known->propLock)) return known;
    std::unique_ptr<ZProperties> made(factory.makePropertiesInstance());
    // Entered only when that has succeeded, so that the next caller tries a file again.
    made->load(file);
    ZProperties* const entered = made.get();
    factory.enter(file, std::move(made));
    isNew = true;
    return entered;
}
