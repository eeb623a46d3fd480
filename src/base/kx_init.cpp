#include "base/kx_init.h"

namespace vorrim {

namespace {

// Set before any static object of any file is made.
constinit kx_init_object* first_service = nullptr;
constinit bool initialised = false;

}  // namespace

kx_init_object::kx_init_object() noexcept {
    kx_init_object** end = &first_service;
    while (*end != nullptr)
        end = &(*end)->next_;
    *end = this;
}

kx_init_object::~kx_init_object() {
    for (kx_init_object** link = &first_service; *link != nullptr; link = &(*link)->next_) {
        if (*link == this) {
            *link = next_;
            return;
        }
    }
}

void kx_init() {
    for (int priority = kx_init_object::kFirstPriority; priority <= kx_init_object::kLastPriority;
         ++priority) {
        for (kx_init_object* service = first_service; service != nullptr; service = service->next_)
            if (service->priority() == priority) service->init();
        if (priority == kx_init_object::kFirstPriority) initialised = true;
    }
}

void kx_uninit() {
    for (int priority = kx_init_object::kLastPriority; priority >= kx_init_object::kFirstPriority;
         --priority)
        for (kx_init_object* service = first_service; service != nullptr; service = service->next_)
            if (service->priority() == priority) service->uninit();
    initialised = false;
}

bool kx_initialised() noexcept {
    return initialised;
}

}  // namespace vorrim
