"""The MSI of one architecture: its source for wixl, and what wixl cannot say by msibuild."""
import datetime
import hashlib
import os
import subprocess
import uuid
from xml.sax.saxutils import quoteattr

from cards import DATABASE, DLL, STRINGS, rows

PRODUCT = "Kelmora ID minidriver"
MAKER = "The Kelmora ID minidriver developers"
# The name space of this package's identifiers, so that equal input gives equal packages.
NAMESPACE = uuid.UUID("6f0f8a52-5d0e-4b0c-9a86-0e5f6d7c21b4")
# By architecture: wixl's name, the template of the finished file, what Windows calls the processor,
# what people call the Windows that it is for.
ARCHITECTURES = {
    "x64": ("x64", "x64;1033", "AMD64", "64-bit Windows on Intel and AMD processors (x64)"),
    "x86": ("x86", "Intel;1033", "x86", "32-bit Windows (x86)"),
    "arm64": ("x64", "Arm64;1033", "ARM64", "64-bit Windows on ARM processors (ARM64)"),
}
# By architecture: what lands in the native System32, as name there and file, and what beside it for
# 32-bit programs. On ARM64 the first one of a set stands for both kinds of 64-bit process: it hands
# each on to the DLL of its own.
SETS = {
    "x64": ([(DLL, "x64/" + DLL)], [(DLL, "x86/" + DLL)]),
    "x86": ([(DLL, "x86/" + DLL)], []),
    "arm64": ([(DLL, "arm64/" + DLL),
               ("kelmora-id-minidriver-arm64.dll", "arm64/kelmora-id-minidriver-arm64.dll"),
               ("kelmora-id-minidriver-x64.dll", "x64/" + DLL)],
              [(DLL, "x86/" + DLL)]),
}


def identifier(name):
    return str(uuid.uuid5(NAMESPACE, name)).upper()


def product_code(version, architecture):
    return identifier(f"product {version} {architecture}")


def files_of(architecture):
    """The files of a package, relative to the folder of all DLLs."""
    return [source for view in SETS[architecture] for _, source in view]


def component(name, win64, files, cards):
    """The DLLs of one System32 and its view of the database."""
    yield f'<Component Id="{name}" Guid="{identifier(name)}" Win64="{"yes" if win64 else "no"}">'
    for number, (landed, source) in enumerate(files):
        key_path = ' KeyPath="yes"' if number == 0 else ""
        yield f'  <File Id="{name}Dll{number}" Name="{landed}" Source={quoteattr(source)}{key_path}/>'
    for card, atr, mask in rows(cards):
        key = quoteattr(rf"SOFTWARE\{DATABASE}\{card}")
        # In the installer's own table "#x" begins a binary value and "#" a number. wixl 0.101 writes a
        # binary value as plain text, so it is given as the number that comes out right.
        values = [("ATR", "integer", "x" + atr.hex().upper()),
                  ("ATRMask", "integer", "x" + mask.hex().upper()),
                  *((value, "string", content) for value, content in STRINGS)]
        for value, kind, content in values:
            yield (f'  <RegistryValue Root="HKLM" Key={key} Name={quoteattr(value)} Type="{kind}"'
                   f' Value={quoteattr(content)}/>')
    yield "</Component>"


def source(version, architecture, package_code, cards):
    """The text for wixl; "@CODE@" for a package code that is not known yet."""
    native, wow64 = SETS[architecture]
    native64 = architecture != "x86"
    _, _, processor, meant_for = ARCHITECTURES[architecture]

    def indented(name, win64, files):
        return "\n".join(" " * 10 + line for line in component(name, win64, files, cards))
    components = {"Native" + architecture: ("System64Folder" if native64 else "SystemFolder", native64, native)}
    if wow64:
        components["Wow64" + architecture] = ("SystemFolder", False, wow64)
    directories = "\n".join(f'''      <Directory Id="{folder}">
{indented(name, win64, files)}
      </Directory>''' for name, (folder, win64, files) in components.items())
    references = "\n".join(f'      <ComponentRef Id="{name}"/>' for name in components)
    programs = "ProgramFiles64Folder" if native64 else "ProgramFilesFolder"
    return f"""<?xml version="1.0" encoding="utf-8"?>
<Wix xmlns="http://schemas.microsoft.com/wix/2006/wi">
  <Product Id="{product_code(version, architecture)}" Name="{PRODUCT}" Language="1033"
           Version="{version}" Manufacturer="{MAKER}" UpgradeCode="{identifier("upgrade")}">
    <Package Id="{package_code}" InstallerVersion="500" Compressed="yes" InstallScope="perMachine"
             Description="{PRODUCT} {version} ({architecture})"/>
    <MajorUpgrade DowngradeErrorMessage="A newer version of {PRODUCT} is installed already."/>
    <Media Id="1" Cabinet="minidriver.cab" EmbedCab="yes"/>
    <Property Id="NATIVEPROCESSOR">
      <RegistrySearch Id="NativeProcessor" Root="HKLM" Type="raw" Name="PROCESSOR_ARCHITECTURE"
                      Key="SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment"/>
    </Property>
    <Condition Message="This package of {PRODUCT} is for {meant_for}. This Windows runs on another \
processor ([NATIVEPROCESSOR]): take the package that is named after it.">\
Installed OR NATIVEPROCESSOR = "{processor}"</Condition>
    <Directory Id="TARGETDIR" Name="SourceDir">
{directories}
      <Directory Id="{programs}">
        <Directory Id="ProductFolder" Name="Kelmora-ID-minidriver">
          <Directory Id="LogFolderOfProduct" Name="Log">
            <Component Id="LogFolder{architecture}" Guid="{identifier("log " + architecture)}"
                       Win64="{"yes" if native64 else "no"}">
              <CreateFolder/>
            </Component>
          </Directory>
        </Directory>
      </Directory>
    </Directory>
    <Feature Id="Minidriver" Level="1" Title="{PRODUCT}"
             Description="The minidriver and its registration for FINEID cards.">
{references}
    </Feature>
    <Feature Id="Log" Level="1000" Title="Log folder"
             Description="The folder that makes the minidriver write a log. Off unless asked for.">
      <ComponentRef Id="LogFolder{architecture}"/>
    </Feature>
  </Product>
</Wix>
"""


def make(version, architecture, folder, msi, cards, epoch):
    """Writes the MSI of the DLLs below the folder. Equal input gives equal bytes."""
    wixl_name, template, _, _ = ARCHITECTURES[architecture]
    content = hashlib.sha256(source(version, architecture, "@CODE@", cards).encode())
    for name in files_of(architecture):
        content.update((folder / name).read_bytes())
        os.utime(folder / name, (epoch, epoch))
    code = identifier("package " + content.hexdigest())
    text = folder / f"{architecture}.wxs"
    text.write_text(source(version, architecture, code, cards), encoding="utf-8")
    # Both tools write the moment of their run into the file.
    moment = datetime.datetime.fromtimestamp(epoch, datetime.timezone.utc)
    at_that_time = ["faketime", "-f", f"{moment:%Y-%m-%d %H:%M:%S}"]
    environment = {**os.environ, "TZ": "UTC"}
    # wixl does not know how to remove what the driver has logged, nor a folder around a folder. In the
    # order of these rows: the log, its folder, the folder around that.
    log = f"'LogFolder{architecture}'"
    columns = "INSERT INTO `RemoveFile` (`FileKey`, `Component_`, `FileName`, `DirProperty`, `InstallMode`) VALUES"
    removal = [f"{columns} ('RemoveLog1', {log}, 'KELMORA.LOG|Kelmora-ID-minidriver.log', 'LogFolderOfProduct', 2)",
               f"{columns} ('RemoveLog2', {log}, '', 'LogFolderOfProduct', 2)",
               f"INSERT INTO `CreateFolder` (`Directory_`, `Component_`) VALUES ('ProductFolder', {log})"]
    # Nor the version of a file: without it Windows would keep an older DLL, which has one, and then
    # remove it with the older package.
    versions = f"UPDATE `File` SET `Version` = '{version}.0', `Language` = '1033'"
    # Nor the place of the older version's removal: inside the transaction, so that an upgrade that fails puts
    # the older one back. wixl has it ahead of that, where a failed upgrade leaves no driver at all.
    sequence = ("UPDATE `InstallExecuteSequence` SET `Sequence` = 1501"
                " WHERE `Action` = 'RemoveExistingProducts'")
    try:
        for command in (["wixl", "--arch", wixl_name, "--output", msi.resolve(), text.name],
                        ["msibuild", msi.resolve(), "-q", *removal, versions, sequence],
                        ["msibuild", msi.resolve(), "-s", PRODUCT, MAKER, template, "{" + code + "}"]):
            subprocess.run([*at_that_time, *command], cwd=folder, env=environment, check=True)
    finally:
        text.unlink()
