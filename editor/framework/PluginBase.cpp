#include "host/FileReaderResource.h"
#include "host/VlPluginBase.h"

void VlPluginBase::closedown()
{
    // Readers first stop serving requests, so that no worker is inside a
    // component while it is being destroyed.
    for (VlComponentBase* component : components_) {
        if (auto* reader = dynamic_cast<Vl::FileReaderResource*>(component))
            reader->stopRequests();
    }
    for (VlComponentBase* component : components_)
        delete component;
    // Emptied without freeing: the list's storage belongs to the plug-in.
    components_.remove(0, components_.size());
}
