/* The seam of the double of winscard: what stands behind its SCard calls. A program hands a table
 * of functions to SetCardSeam, which the library exports beside the published calls.
 *
 * Plain C with fixed widths, so that any program can fill it, whatever platform headers it has.
 * Statuses are those of PC/SC; a handle is whatever the functions say it is. */
#ifndef VIRTUAL_CARD_WINSCARD_CARD_SEAM_H
#define VIRTUAL_CARD_WINSCARD_CARD_SEAM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Every function may be null; then the default beside it holds. `self` is passed to each. */
typedef struct CardSeam {
    void* self;
    /* The one reader's name, in ASCII; null for "Virtual Reader". */
    const char* readerName;

    /* Default: context 1. */
    int32_t (*establishContext)(void* self, uintptr_t* context);
    /* Default: success. */
    int32_t (*releaseContext)(void* self, uintptr_t context);
    /* Whether the reader may be listed. Default: success. */
    int32_t (*listReaders)(void* self, uintptr_t context);
    /* Default: card 1 and T=1. The reader's name was compared already. */
    int32_t (*connect)(void* self, uintptr_t context, uint32_t shareMode, uint32_t protocols,
                       uintptr_t* card, uint32_t* activeProtocol);
    /* Default: success and T=1. */
    int32_t (*reconnect)(void* self, uintptr_t card, uint32_t shareMode, uint32_t protocols,
                         uint32_t initialization, uint32_t* activeProtocol);
    /* Default: success. */
    int32_t (*disconnect)(void* self, uintptr_t card, uint32_t disposition);
    /* Default: success. */
    int32_t (*beginTransaction)(void* self, uintptr_t card);
    /* Default: success. */
    int32_t (*endTransaction)(void* self, uintptr_t card, uint32_t disposition);
    /* `atr` has room for 36 bytes, and atrLength says so. Default: state 0, T=1 and no ATR. */
    int32_t (*status)(void* self, uintptr_t card, uint32_t* state, uint32_t* protocol, uint8_t* atr,
                      uint32_t* atrLength);
    /* `replyLength` says the room in `reply`, and ends as the bytes received. `protocol` is that of
     * the send record, 0 without one. Default: SCARD_E_NO_SERVICE. */
    int32_t (*transmit)(void* self, uintptr_t card, uint32_t protocol, const uint8_t* command,
                        uint32_t commandLength, uint8_t* reply, uint32_t* replyLength);
} CardSeam;

/* Puts a table behind the calls; it must outlive its use. Null takes it away again: without one
 * every call answers SCARD_E_NO_SERVICE. Not to be called while an SCard call runs. */
void SetCardSeam(const CardSeam* seam);

typedef void (*SetCardSeamFunction)(const CardSeam* seam);

#ifdef __cplusplus
}
#endif

#endif
