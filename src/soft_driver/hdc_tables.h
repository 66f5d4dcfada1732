// The handle tables of the link. They live as long as the process: a detached thread may call the
// driver while the process ends.
#pragma once

#include "soft_driver/handles.h"
#include "soft_driver/hdc_client.h"
#include "soft_driver/hdc_message.h"
#include "soft_driver/hdc_server.h"
#include "soft_driver/hdc_session.h"

namespace tiv::soft_driver {

// The table of one kind of object.
template <class T>
HandleTable<T>& Table() {
    static HandleTable<T>& table = *new HandleTable<T>();
    return table;
}

}  // namespace tiv::soft_driver
