// Puts a certificate among the roots that this Windows, or Wine prefix, trusts, or takes it away
// again: for a prefix that tests have to themselves.
#include <windows.h>

#include <wincrypt.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

bool addTo(HCERTSTORE store, PCCERT_CONTEXT certificate) {
    return CertAddCertificateContextToStore(store, certificate, CERT_STORE_ADD_REPLACE_EXISTING,
                                            nullptr);
}

// A certificate that is not there (any more) is fine.
bool removeFrom(HCERTSTORE store, PCCERT_CONTEXT certificate) {
    const PCCERT_CONTEXT found = CertFindCertificateInStore(
        store, X509_ASN_ENCODING, 0, CERT_FIND_EXISTING, certificate, nullptr);
    return found == nullptr || CertDeleteCertificateFromStore(found);
}

}  // namespace

int main(int count, char** arguments) {
    const bool adds = count == 3 && std::strcmp(arguments[1], "add") == 0;
    if (!adds && !(count == 3 && std::strcmp(arguments[1], "remove") == 0)) {
        std::fputs("usage: trust_certificate add|remove CERTIFICATE.der\n", stderr);
        return 2;
    }
    std::ifstream file(arguments[2], std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), {});
    const PCCERT_CONTEXT certificate =
        CertCreateCertificateContext(X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(bytes.data()),
                                     static_cast<DWORD>(bytes.size()));
    bool done = certificate != nullptr;
    for (const DWORD location : {CERT_SYSTEM_STORE_LOCAL_MACHINE, CERT_SYSTEM_STORE_CURRENT_USER}) {
        if (!done) break;
        const HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_SYSTEM_A, 0, 0, location, "Root");
        done = store != nullptr && (adds ? addTo : removeFrom)(store, certificate);
        if (store != nullptr) CertCloseStore(store, 0);
    }
    if (!done) std::fprintf(stderr, "trust_certificate: error %lu\n", GetLastError());
    return done ? 0 : 1;
}
