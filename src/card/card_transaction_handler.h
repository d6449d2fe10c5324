// The object for one connected card: a small value on the stack of the operation that uses it. It
// holds the handle (not owned), the protocol record, a scoped transaction and the trace flag, and
// offers the card operations that report in an ApduResult. One file holds one group of them.
//
// Nothing of the card's state is remembered here: no selected application, directory or generation.
#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "apdu/apdu_result.h"
#include "profiles/card_type.h"

namespace KelmoraID {

class CardTransactionHandler {
public:
    /// A handle of 0 is reported on the ERROR channel and makes an object whose commands fail at
    /// the platform. Nothing is thrown.
    explicit CardTransactionHandler(SCARDHANDLE hSCard);
    /// Ends a transaction that is still open, with a line on the WARNING channel.
    ~CardTransactionHandler();
    CardTransactionHandler(const CardTransactionHandler&) = delete;
    CardTransactionHandler& operator=(const CardTransactionHandler&) = delete;

    // Transactions and commands (card_transaction_handler.cpp, send_apdu_command.cpp)

    /// Begin and end a PC/SC transaction. Held ready: no entry point opens one, since the platform
    /// holds the card around each call. The result carries only the transport error code.
    ApduResult beginTransaction();
    ApduResult endTransaction();

    void setTrace(bool enabled) { traceEnabled = enabled; }

    /// Sends the command of the record and gathers the whole reply in it, with GET RESPONSE while
    /// the card says 61xx, up to mostGetResponses. Never throws for the card or the platform: the
    /// record tells. From 10,000 commands of this object on nothing goes out, as if the reader gave
    /// no reply.
    void SendApduCommand(ApduResult& result);

    // Selections (application_selection.cpp, directory_selection.cpp, pin_commands.cpp)

    /// Selects the application, trying FineidAid and then CosmoXAid.
    ApduResult selectFINEIDApplication();
    /// Walks a path of two-byte identifiers by the three-step ladder of SELECT forms.
    ApduResult selectDF(const ByteVector& path);
    /// Selects the root directory.
    ApduResult selectRootDir();
    /// VERIFY with reference 11, without any selection; and root, ESIGN and VERIFY with reference
    /// 15. Held ready: the PIN flow of the system goes through CardOperations.
    ApduResult verifyPIN1(const ByteVector& pin);
    ApduResult verifyPIN2(const ByteVector& pin);

    // Files (file_reading.cpp, cia_directories.cpp, cia_information.cpp, certificates.cpp)

    /// Reads a whole elementary file. @param filePath two-byte identifiers, normally from 3F 00
    ApduResult ReadFile(const ByteVector& filePath);
    /// Reads that many bytes of the selected file, in chunks of at most 127 bytes.
    ApduResult readBinary(std::uint32_t length);

    // An index counts the entries of the card's directory, from 0 on.

    /// The minimum and maximum length of the index-th PIN, one byte each in a good directory; empty
    /// on every failure.
    ByteVector pinLengths(std::uint32_t index);
    /// The path of the index-th certificate's file; empty on every failure.
    ByteVector certificatePath(std::uint32_t index);
    /// What both of these do: with readPrivateKey as pinLengths, else with readCertificate as
    /// certificatePath. With neither, the ODF is read and the result is empty.
    ByteVector GetDirectories(bool readPrivateKey, bool readCertificate, std::uint32_t index);
    /// The minimum and maximum length of the index-th PIN in bytes, both 0 on failure.
    std::pair<BYTE, BYTE> GetPinMinMaxLength(std::uint32_t index);
    /// Reads EF.CIAInfo. The outputs are written on success only.
    bool GetSerialNumberAndLabelFromCIAInfo(ByteVector& serialNumber, std::string& label);
    /// The encoded bytes of the index-th certificate, empty on every failure.
    ByteVector GetCertificate(std::uint32_t index);

    // Signing (signature_script.cpp)

    /// The signature script: MSE SET, on some cards PSO HASH, PSO COMPUTE DIGITAL SIGNATURE
    /// (ISO/IEC 7816-8). A card that does not know MSE SET (6D00) goes on without it.
    /// @param data          the hash, or the DigestInfo, as the card takes it; at most 255 bytes
    /// @param hashNibble    upper half of the algorithm reference: the hash
    /// @param schemeNibble  lower half: the signature scheme
    /// @param keyRef        the key's reference on this card (key_references.h)
    /// @param cardType      whose row tells of PSO HASH and Le
    /// @return the signature in the order of the card; or the first refused command's result
    ApduResult computeSignature(const ByteVector& data, BYTE hashNibble, BYTE schemeNibble,
                                BYTE keyRef, CardType cardType);

private:
    /// Emits a line on the DEBUG channel while the trace flag is set. A line that has to be made is
    /// given as a callable, and made only then.
    void trace(std::string_view line) const {
        if (traceEnabled) emitTrace(std::string(line));
    }
    template <std::invocable MakeLine>
    void trace(const MakeLine& makeLine) const {
        if (traceEnabled) emitTrace(makeLine());
    }
    static void emitTrace(const std::string& line);
    /// Makes the record of a command and sends it.
    ApduResult send(ApduCommand command);
    using ReceiveBuffer = std::array<BYTE, 512>;
    /// One SCardTransmit: stores its code in the record and gives the bytes received, which lie in
    /// the buffer.
    std::span<const BYTE> exchange(ApduResult& result, const ByteVector& command,
                                   DWORD announcedLength, ReceiveBuffer& buffer);
    /// The two branches of GetDirectories, from the content of the ODF on.
    ByteVector readPinLengths(const ByteVector& odf, std::uint32_t index);
    ByteVector readCertificatePath(const ByteVector& odf, std::uint32_t index);

    SCARDHANDLE hSCard_;
    bool transactionOpen = false;
    bool traceEnabled = false;
    int commandsSent_ = 0;
    SCARD_IO_REQUEST sendPci;
};

}  // namespace KelmoraID
