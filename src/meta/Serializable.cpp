#include "meta/Serializable.h"

#include "base/Output.h"

namespace vorrim {

bool Serializable::save(const Serializable& element, kx_file& to, Form form) {
    if (form == Form::network ? element.toNetwork(to) : element.toDisk(to)) return true;
    current_output().printError("ERROR: Serializable::saveList()\n");
    return false;
}

}  // namespace vorrim
