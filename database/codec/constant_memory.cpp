#include "database/codec/constant_memory.h"

#include <dlfcn.h>
#include <link.h>

#include <cstdint>

namespace rov {
namespace {

struct Search {
  uintptr_t begin;
  size_t len;
  const char* object = nullptr;  // the object that has the bytes in a part that is only read
  ElfW(Addr) base = 0;
};

// Relocated constants lie in writable memory that the loader makes read-only (RELRO).
bool is_read_only(const ElfW(Phdr) & part) {
  return part.p_type == PT_GNU_RELRO || (part.p_type == PT_LOAD && (part.p_flags & PF_W) == 0);
}

int look_into(dl_phdr_info* info, size_t, void* argument) {
  auto* search = static_cast<Search*>(argument);
  for (ElfW(Half) i = 0; i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr)& part = info->dlpi_phdr[i];
    if (!is_read_only(part)) continue;
    const uintptr_t begin = info->dlpi_addr + part.p_vaddr;
    if (search->begin < begin || search->begin - begin >= part.p_memsz) continue;
    if (search->len > part.p_memsz - (search->begin - begin)) continue;
    search->object = info->dlpi_name;
    search->base = info->dlpi_addr;
    return 1;
  }
  return 0;
}

// Keeps a loaded object from being unloaded. False when it can't be told to.
bool pin(const char* object, ElfW(Addr) base) {
  if (*object == '\0') return true;  // the program itself
  void* handle = dlopen(object, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
  if (handle == nullptr) return false;
  link_map* map = nullptr;
  const bool same = dlinfo(handle, RTLD_DI_LINKMAP, &map) == 0 && map->l_addr == base;
  dlclose(handle);
  return same;
}

}  // namespace

bool stays_constant(const void* data, size_t len) {
  Search search{reinterpret_cast<uintptr_t>(data), len};
  dl_iterate_phdr(look_into, &search);
  return search.object != nullptr && pin(search.object, search.base);
}

}  // namespace rov
