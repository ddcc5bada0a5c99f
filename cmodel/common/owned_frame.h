// A FRAME that frees itself.
#ifndef CMODEL_OWNED_FRAME_H
#define CMODEL_OWNED_FRAME_H

#include <memory>

#include "common.h"

namespace cm {

struct DeleteFrame {
    void operator()(FRAME* frame) const { CM_DelFRAME(frame); }
};
struct OwnedFrame : std::unique_ptr<FRAME, DeleteFrame> {
    using unique_ptr::unique_ptr;
    operator FRAME*() const { return get(); }
};

}  // namespace cm

#endif
