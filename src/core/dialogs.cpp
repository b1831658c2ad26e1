#include "core/dialogs.h"

namespace tolma::core::msg {

bool hasYesNo(int style) {
    return (style & 0x0F) == 4;
}

}  // namespace tolma::core::msg
