"""The board packages in packaging/: their syntax, the variables each build
system needs, and that the CMake options they set exist (neither Buildroot
nor Yocto is at hand to build them); and that a build against the vendor's
driver library makes the tool alone."""
import re
import subprocess
from pathlib import Path

import pytest

REPO = Path(__file__).resolve().parents[2]
PKG = REPO / 'packaging'


def cmake_options():
    return set(re.findall(r'(?:option|set)\((CLI_\w+)', (REPO / 'CMakeLists.txt').read_text()))


def defines(text):
    return set(re.findall(r'-D(\w+)=', text))


def make_variables(text):
    variables = {}
    for line in text.replace('\\\n', ' ').splitlines():
        match = re.match(r'([A-Z0-9_]+)\s*(\+=|:=|\?=|=)\s*(.*)$', line)
        if match:
            name, op, value = match.groups()
            variables[name] = (variables.get(name, '') + ' ' if op == '+=' else '') + value.strip()
    return variables


def test_buildroot_package():
    mk = (PKG / 'buildroot/cli/cli.mk').read_text()
    variables = make_variables(mk)
    for name in ('CLI_VERSION', 'CLI_SITE', 'CLI_SITE_METHOD', 'CLI_LICENSE', 'CLI_CONF_OPTS'):
        assert variables.get(name), name
    assert mk.rstrip().endswith('$(eval $(cmake-package))')
    assert 'CLI_VENDOR_DRIVER' in defines(variables['CLI_CONF_OPTS'])
    assert defines(variables['CLI_CONF_OPTS']) <= cmake_options()

    config = (PKG / 'buildroot/cli/Config.in').read_text()
    entries = re.split(r'^config ', config, flags=re.M)[1:]
    symbols = {entry.split()[0] for entry in entries}
    assert 'BR2_PACKAGE_CLI' in symbols
    assert set(re.findall(r'BR2_PACKAGE_CLI\w*', mk)) <= symbols
    for entry in entries:
        assert re.search(r'^\t(bool|string|int|hex) ', entry, re.M), entry.split()[0]
    # Buildroot builds a dependency first only when it is both listed and enabled.
    cli_entry = next(e for e in entries if e.split()[0] == 'BR2_PACKAGE_CLI')
    enabled = set(re.findall(r'^\t(?:select|depends on) (BR2_PACKAGE_\w+)', cli_entry, re.M))
    dependencies = variables.get('CLI_DEPENDENCIES', '').split()
    assert dependencies
    for name in dependencies:
        assert 'BR2_PACKAGE_' + name.upper().replace('-', '_') in enabled, name
    assert len(re.findall(r'^if ', config, re.M)) == len(re.findall(r'^endif$', config, re.M))


def test_yocto_recipe():
    recipe = PKG / 'yocto/recipes-equipment/cli/cli_1.0.bb'
    fields, inherits = {}, []
    for line in recipe.read_text().splitlines():
        if not line.strip() or line.startswith('#'):
            continue
        match = re.fullmatch(r'inherit ([\w ]+)|([A-Z_]+(?::\$\{PN\})?) (\?\?=|\?=|=|\+=) "([^"]*)"',
                             line)
        assert match, f'{recipe.name}: not a recipe line: {line}'
        if match[1]:
            inherits += match[1].split()
        else:
            fields[match[2]] = match[4]
    assert 'cmake' in inherits
    for name in ('SUMMARY', 'LICENSE', 'SRC_URI', 'S', 'EXTRA_OECMAKE'):
        assert fields.get(name), name
    assert 'CLI_VENDOR_DRIVER' in defines(fields['EXTRA_OECMAKE'])
    assert defines(fields['EXTRA_OECMAKE']) <= cmake_options()
    assert fields['CLI_DRIVER_RECIPE'] and '${CLI_DRIVER_RECIPE}' in fields['DEPENDS']
    # Reproducible: a pinned commit of this repository, fetched from an
    # address that the layer, not the recipe, sets.
    assert re.fullmatch(r'[0-9a-f]{40}', fields['SRCREV'])
    address = re.match(r'\$\{(\w+)\}', fields['SRC_URI'])
    assert address and address[1] not in fields
    known = subprocess.run(['git', '-C', str(REPO), 'cat-file', '-e', fields['SRCREV'] + '^{commit}'],
                           capture_output=True, check=False)
    assert known.returncode == 0 or not (REPO / '.git').exists()


def test_a_vendor_driver_build_makes_the_tool_alone(tmp_path):
    configure = subprocess.run(['cmake', '-S', str(REPO), '-B', str(tmp_path),
                                '-DCLI_VENDOR_DRIVER=/vendor/libdriver.so'],
                               capture_output=True, text=True, check=False)
    if configure.returncode != 0:
        pytest.fail(configure.stderr)
    listing = subprocess.run(['cmake', '--build', str(tmp_path), '--target', 'help'],
                             capture_output=True, text=True, check=True).stdout
    targets = {t for t in re.findall(r'^\.\.\. (\S+)', listing, re.M) if '.' not in t}
    assert targets - {'all', 'clean', 'depend', 'edit_cache', 'rebuild_cache', 'install',
                      'install/local', 'install/strip', 'list_install_components'} == {'cli', 'equ'}
