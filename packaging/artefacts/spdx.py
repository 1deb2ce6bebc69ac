"""The list of what is in an artefact, as an SPDX 2.3 document. Nothing in it depends on when or where it was made."""
import hashlib
import re
import time
import uuid

NAMESPACE = uuid.UUID("b7b3fe34-0c3e-4c4c-9d3a-6c8b4b1f4a52")  # of these documents
AUTHORS = "The QzHidAPI authors"


class Document:
    """A document about one artefact, to which files and parts are added."""

    def __init__(self, name, contents, version, epoch):
        self._artefact = {
            "SPDXID": "SPDXRef-Artefact",
            "name": name,
            "packageFileName": name,
            "versionInfo": version,
            "supplier": f"Organization: {AUTHORS}",
            "downloadLocation": "NOASSERTION",
            "filesAnalyzed": False,
            "checksums": _checksums(contents),
            "licenseConcluded": "NOASSERTION",
            "licenseDeclared": "MIT",
            "copyrightText": "NOASSERTION",
        }
        self._epoch = epoch
        self._files = {}
        self._parts = {}
        self._relationships = [("SPDXRef-DOCUMENT", "DESCRIBES", "SPDXRef-Artefact", "")]

    def add_file(self, name, contents):
        number = _identifier(f"File-{len(self._files) + 1}", name)
        self._files[name] = {"SPDXID": number, "fileName": f"./{name}", "checksums": _checksums(contents),
                             "licenseConcluded": "NOASSERTION", "copyrightText": "NOASSERTION"}
        self._relationships.append(("SPDXRef-Artefact", "CONTAINS", number, ""))

    def add_part(self, part, relationship, file_name=None, comment=""):
        """A part that a file, or the artefact itself, contains or needs."""
        owner = self._files[file_name]["SPDXID"] if file_name else "SPDXRef-Artefact"
        if part not in self._parts:
            number = _identifier(f"Part-{len(self._parts) + 1}", part.name)
            self._parts[part] = _package_of(part, number)
        self._relationships.append((owner, relationship, self._parts[part]["SPDXID"], comment))

    def as_json(self):
        if self._files:
            self._artefact["filesAnalyzed"] = True
            self._artefact["packageVerificationCode"] = {"packageVerificationCodeValue": self._verification_code()}
        sum_of_artefact = self._artefact["checksums"][1]["checksumValue"]
        return {
            "spdxVersion": "SPDX-2.3",
            "dataLicense": "CC0-1.0",
            "SPDXID": "SPDXRef-DOCUMENT",
            "name": self._artefact["name"],
            "documentNamespace": f"urn:uuid:{uuid.uuid5(NAMESPACE, sum_of_artefact)}",
            "creationInfo": {
                "created": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(self._epoch)),
                "creators": [f"Organization: {AUTHORS}", "Tool: QzHidAPI-list_contents"],
            },
            "packages": [self._artefact, *self._parts.values()],
            "files": list(self._files.values()),
            "relationships": [
                {"spdxElementId": owner, "relationshipType": relationship, "relatedSpdxElement": other,
                 **({"comment": comment} if comment else {})}
                for owner, relationship, other, comment in self._relationships],
        }

    def _verification_code(self):
        sums = sorted(file["checksums"][0]["checksumValue"] for file in self._files.values())
        return hashlib.sha1("".join(sums).encode()).hexdigest()


def _checksums(contents):
    return [{"algorithm": "SHA1", "checksumValue": hashlib.sha1(contents).hexdigest()},
            {"algorithm": "SHA256", "checksumValue": hashlib.sha256(contents).hexdigest()}]


def _identifier(prefix, name):
    return f"SPDXRef-{prefix}-{re.sub('[^A-Za-z0-9.]', '-', name.rpartition('/')[2])}"


def _package_of(part, identifier):
    package = {
        "SPDXID": identifier,
        "name": part.name,
        "supplier": part.supplier,
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": False,
        "licenseConcluded": "NOASSERTION",
        "licenseDeclared": part.licence,
        "copyrightText": "NOASSERTION",
    }
    if part.licence_text:
        package["licenseComments"] = f"The text is in licences/{part.licence_text}.txt in the artefact."
    if part.version:
        package["versionInfo"] = part.version
    if part.file_name:
        package["packageFileName"] = part.file_name
    if part.address:
        package["externalRefs"] = [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                                    "referenceLocator": part.address}]
    return package
