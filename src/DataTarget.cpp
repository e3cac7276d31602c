// The base of the data targets, and what the four share.

#include <dv/env/DataTarget.h>

#include "DataTargetSupport.h"

namespace dv::env {

using namespace internal;

// The base has no message map of its own: a message that a concrete class
// does not map goes on to FXObject.
FXIMPLEMENT_ABSTRACT(DataTarget, FXObject, nullptr, 0)

DataTarget::~DataTarget() = default;
DataTarget::DataTarget(const DataTarget& other) = default;
DataTarget& DataTarget::operator=(const DataTarget& other) = default;

namespace internal {

FXTreeItem* itemWithValue(const FXTreeListBox& box, std::int32_t state) {
    for (FXTreeItem* item = box.getFirstItem(); item != nullptr; item = item->getBelow())
        if (userValue(item) == state)
            return item;
    return box.getFirstItem();
}

void showValue(FXTreeListBox& box, std::int32_t state) { box.setCurrentItem(itemWithValue(box, state), false); }

}  // namespace internal

}  // namespace dv::env
