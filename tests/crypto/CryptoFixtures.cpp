#include "CryptoFixtures.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "TestSupport.h"
#include "crypto/DsaVerifier.h"
#include "crypto/RsaVerifier.h"
#include "support/ContentCoding.h"
#include "support/XString.h"

namespace fs = std::filesystem;

namespace cryptofixtures {

namespace {

// Generates into a private directory and renames it into place, so that test processes
// running side by side never see a half-made set.
std::string generate() {
  const std::string script = testsupport::sourceDir() + "/tests/crypto/fixtures/make_sig_fixtures.sh";
  std::error_code ec;
  // Named after the script's modification time: an edited script makes a fresh set.
  const auto stamp = fs::last_write_time(script, ec).time_since_epoch().count();
  const std::string target = testsupport::binaryDir() + "/crypto-fixtures-" + std::to_string(stamp);
  if (fs::exists(target + "/complete", ec)) return target;
  const std::string tmp = testsupport::makeTempDir("cryptofx");
  if (tmp.empty()) return {};
  const std::string cmd = "bash '" + script + "' '" + tmp + "' >/dev/null 2>&1";
  if (std::system(cmd.c_str()) != 0 || !fs::exists(tmp + "/complete", ec)) {
    fs::remove_all(tmp, ec);
    return {};
  }
  fs::rename(tmp, target, ec);
  if (ec) fs::remove_all(tmp, ec);  // another process won the race
  return fs::exists(target + "/complete", ec) ? target : std::string();
}

}  // namespace

const std::string& dir() {
  static const std::string d = generate();
  return d;
}

std::string path(const std::string& name) { return dir() + "/" + name; }

DataBuffer file(const std::string& name) { return supporttest::dbOf(testsupport::readFile(path(name))); }

std::string hex(const DataBuffer& db, bool lower) {
  StringBuffer sb;
  ContentCoding::encodeHex(db.getData2(), db.getSize(), lower, sb);
  return sb.str();
}

DataBuffer fromHex(const std::string& hex) {
  DataBuffer db;
  ContentCoding::decodeHexToDb(hex.data(), hex.size(), db);
  return db;
}

std::string base64(const DataBuffer& db) {
  StringBuffer sb;
  ContentCoding::encodeBase64(db.getData2(), db.getSize(), sb);
  return sb.str();
}

DataBuffer fromBase64(const std::string& text) {
  StringBuffer sb(text);
  sb.replaceAllOccurances("&#13;", "");
  DataBuffer out;
  if (!ContentCoding::decodeBase64ToDb(sb.getString(), sb.getSize(), out)) out.clear();
  return out;
}

DataBuffer tampered(DataBuffer db) {
  db.getDataRw()[db.getSize() / 2] ^= 0x01;
  return db;
}

Key::Key(const std::string& nameOrPath) : obj(ClsPublicKey::createNewCls()) {
  if (!nameOrPath.empty())
    loaded = obj->LoadFromFile(XString((nameOrPath[0] == '/' ? nameOrPath : path(nameOrPath)).c_str()));
}

std::string Key::type() {
  XString t;
  obj->get_KeyType(t);
  return t.getUtf8();
}

DataBuffer Key::spki() {
  DataBuffer der;
  LogNull log;
  obj->getPublicKeyDer(false, der, log);
  return der;
}

Verdict verifyRsa(ClsPublicKey& key, const DataBuffer& sig, const DataBuffer& hash, int hashId, int padding,
                  int mgfHashId, bool lenient) {
  Verdict v;
  LogNull log;
  if (const RsaKeyData* rsa = key.getPubKey().getRsaKey())
    v.ran = RsaVerifier::verifyHashExt(sig.getData2(), sig.getSize(), hash.getData2(), hash.getSize(), hashId, padding,
                                       mgfHashId, v.valid, *rsa, 0, lenient, v.keyMismatch, log);
  return v;
}

Verdict verifyDsa(ClsPublicKey& key, const DataBuffer& sig, const DataBuffer& hash, bool rawFirst) {
  Verdict v;
  LogNull log;
  if (const DsaKeyData* dsa = key.getPubKey().getDsaKey())
    v.ran = DsaVerifier::verifyHash(*dsa, sig.getData2(), sig.getSize(), rawFirst, hash.getData2(), hash.getSize(),
                                    v.valid, log);
  return v;
}

Verdict verifyEcdsa(ClsPublicKey& key, const DataBuffer& sig, const DataBuffer& hash) {
  Verdict v;
  LogNull log;
  if (const EccKey* ec = key.getPubKey().getEccKey())
    v.ran = ec->eccVerifyHash(sig.getData2(), sig.getSize(), false, hash.getData2(), hash.getSize(), v.valid, log, 0);
  return v;
}

}  // namespace cryptofixtures
