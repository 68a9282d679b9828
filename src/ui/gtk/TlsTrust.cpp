#include "ui/gtk/TlsTrust.h"

namespace qipg::internal {

bool certificateTrustedByCAFile(GTlsCertificate* certificate, const std::string& caFile,
                                const std::string& host, guint16 port) {
  if (certificate == nullptr || caFile.empty() || host.empty()) return false;
  GError* error = nullptr;
  GTlsDatabase* database = g_tls_file_database_new(caFile.c_str(), &error);
  if (database == nullptr) {
    g_clear_error(&error);
    return false;
  }
  GSocketConnectable* identity = g_network_address_new(host.c_str(), port);
  const GTlsCertificateFlags problems =
      g_tls_database_verify_chain(database, certificate, G_TLS_DATABASE_PURPOSE_AUTHENTICATE_SERVER,
                                  identity, nullptr, G_TLS_DATABASE_VERIFY_NONE, nullptr, &error);
  const bool trusted = error == nullptr && problems == G_TLS_CERTIFICATE_NO_FLAGS;
  g_clear_error(&error);
  g_object_unref(identity);
  g_object_unref(database);
  return trusted;
}

}  // namespace qipg::internal
