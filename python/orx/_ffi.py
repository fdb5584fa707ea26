"""Loading liborx and its format plug-ins through cffi in ABI mode.

Nothing is compiled: the declarations below repeat the parts of the public
headers (include/orx/*.h) the package uses, and the library is opened with
dlopen.  The library is looked for, in order, at $ORX_LIBRARY, beside the
package as `cmake --install` lays it out (PREFIX/lib/liborx.so.0 with the
package in PREFIX/lib/python3/dist-packages/orx), in a build tree of the
source checkout the package sits in (build/<preset>/src), and on the
system loader's path.  Plug-ins are loaded as the orx tool loads them: every
*.so of the directories in $ORX_PLUGIN_PATH, then of orx/plugins beside the
library (lib/orx/plugins in the build tree).
"""
from __future__ import annotations

import os
import threading
from pathlib import Path

import cffi

ffi = cffi.FFI()
ffi.cdef(r"""
typedef struct ORX_RESPONSE_CURVE {
  int32_t kind; float gamma; int32_t flags; int32_t reserved; int32_t channels;
  int32_t length; int32_t type; int32_t depth; void **curves;
} ORX_RESPONSE_CURVE;
typedef struct ORX_CHANNELS {
  char *name; int32_t count; int32_t type; int32_t bits; int32_t reserved;
} ORX_CHANNELS;
typedef struct ORX_WINDOW { int32_t left, right, bottom, top; } ORX_WINDOW;
typedef struct ORX_IFD {
  int32_t version; ORX_RESPONSE_CURVE curve; char *aspect; int32_t x_resolution;
  int32_t y_resolution; float aspect_ratio; ORX_WINDOW window; ORX_WINDOW active;
  int32_t pixel_flags; int32_t orientation; ORX_CHANNELS image; ORX_CHANNELS matte;
  ORX_CHANNELS aux; ORX_CHANNELS index; int32_t field;
} ORX_IFD;
typedef struct ORX_CAP_SETTING { uint16_t code; union { int32_t i; float f; } value; } ORX_CAP_SETTING;
typedef struct ORX_CAP_LIST_ENTRY {
  int16_t value; char *name; int32_t has_second; char *second_name;
} ORX_CAP_LIST_ENTRY;
typedef struct ORX_CAP_LIST {
  int16_t default_value; int32_t count; ORX_CAP_LIST_ENTRY *entries;
} ORX_CAP_LIST;
typedef struct ORX_CAP_ENTRY {
  int32_t id; char *name; int32_t has_second; char *second_name; uint8_t is_value;
  ORX_CAP_LIST *list; uint8_t state;
} ORX_CAP_ENTRY;
typedef struct ORX_INFO {
  char *type; char *handle; uint8_t full_path; char *name; char *extension; char *desc;
  char *program; char *machine; char *user; char *date; char *time; char *filter;
  char *compression; ORX_CAP_SETTING **settings; uint8_t transient; uint64_t client_data;
  int32_t job; int32_t frame; uint32_t client_flags; uint32_t valid; float red[3];
  float green[3]; float blue[3]; float white[3]; int32_t image_count; ORX_IFD *images;
  int32_t timing_mode; float frame_rate; int32_t timing_start; int32_t timing_end;
  int32_t frame_count; uint8_t enabled; uint64_t reserved[3];
} ORX_INFO;
typedef struct ORX_FORMAT {
  char *key; char *extension; char *name; char *description; int32_t owns_format_string;
  char *format_string; char *name_syntax; int32_t add_extension; int32_t usage;
  int32_t orientation; int32_t bits_per_palette_entry; int32_t channels;
  int32_t bits_per_channel; int32_t mattes; int32_t bits_per_matte; int32_t z_channels;
  int32_t bits_per_z_channel; int32_t active_window; int32_t access; void *capability;
  void *caps_update; int32_t multi_frame; uint8_t hard_link; uint8_t remote_access;
  void *is_file; void *popdown; void *popup;
} ORX_FORMAT;
typedef struct ORX_OBJECT {
  void **private_cell; ORX_INFO info; int32_t access; int32_t reserved0;
  int (*scan)(void *, int32_t, void *); void *close;
  void *playback_bind; void *playback_goto; void *playback_play; void *playback_params;
  void *playback_stop; void *get_frame; void *lut_read; void *region; void *set_frame;
  void *seek; int32_t current_line; const ORX_FORMAT *format; void *direct_scan; void *lock;
} ORX_OBJECT;
typedef struct ORX_FILTER {
  float x_phase, y_phase; float x_width, y_width; void *x_kernel; void *y_kernel;
} ORX_FILTER;
typedef struct IMP_REQUEST {
  const char *key; uint32_t swatch_size; int32_t texture_type; int32_t filter; int32_t wrap;
} IMP_REQUEST;
typedef struct ORX_TEXTURE ORX_TEXTURE;
typedef int (*ERR_HANDLER)(const char *, int, const char *, void *, intptr_t);
typedef uint8_t (*ORX_PLUGIN_ENUM)(void **, const char **);

extern int32_t orx__err;
int ERR_dcl_handler(void *record, ERR_HANDLER handler, intptr_t data);
int ERR_unmask_s(int severity);
void *ERR_malloc(uint32_t size);
int ERR_free(void *pointer);
char *STR_save(const char *s);
const char *ORX_version(int *major, int *minor, int *patch);

int ORX_init(void *catalogue, ORX_PLUGIN_ENUM plugins);
ORX_FORMAT *ORX_find(const char *key);
ORX_FORMAT *ORX_info(void);
const char *ORX_get_file_type(const char *name, void *stream, int32_t *known);
void ORX_info_get_specific(const char *key, const ORX_FORMAT *format, ORX_CAP_ENTRY **table,
                           int32_t *first, int32_t *second, int32_t *count);
void ORX_info_init(ORX_INFO *info);
void ORX_info_cleanup(ORX_INFO *info, uint8_t free_strings);
void orx__init_ifd(ORX_IFD *ifd);
ORX_OBJECT *ORX_open(ORX_INFO *info, const char *mode);
int ORX_scan_read(ORX_OBJECT *object, int32_t line, void ***channels);
int ORX_scan_write(ORX_OBJECT *object, int32_t line, void **channels);
int ORX_close(ORX_OBJECT *object);
void **ORX_chan_alloc(ORX_IFD *ifd, int32_t width, const char *who, uint32_t *size);
void ORX_chan_free(void **buffer);
int ORX_get_region(ORX_OBJECT **object, int32_t x_left, int32_t x_right, int32_t y_bottom,
                   int32_t y_top, void *buffer, int32_t stride, int32_t layout);

ORX_OBJECT *orx__cast_operator(ORX_OBJECT *handle);
ORX_OBJECT *orx__clamp_operator(ORX_OBJECT *handle);
ORX_OBJECT *orx__gamma_operator(ORX_OBJECT *handle, const ORX_RESPONSE_CURVE *target);
ORX_OBJECT *orx__quantize_read_operator(ORX_OBJECT *handle, const int32_t *const target[3]);
ORX_OBJECT *orx__quantize_write_operator(ORX_OBJECT *handle, const int32_t *const target[3]);
ORX_OBJECT *ORX__select(ORX_OBJECT *handle, int32_t image);
ORX_OBJECT *orx__min_max_operator(ORX_OBJECT *handle, double minimum, double maximum);
ORX_OBJECT *orx__resample_operator(ORX_OBJECT *handle, const ORX_FILTER *filter, int32_t left,
                                   int32_t right, int32_t bottom, int32_t top);
ORX_OBJECT *orx__scale_operator(ORX_OBJECT *handle, float x0, float y0, float x1, float y1,
                                int32_t width, int32_t height);
const ORX_FILTER *ORX_filter_find(const char *name);
const char *ORX_filter_name(int32_t index);
ORX_OBJECT *orx__rgb_transform_operator(ORX_OBJECT *handle, const float target[8]);
ORX_OBJECT *orx__xyz_transform_operator(ORX_OBJECT *handle, int32_t to_xyz);
ORX_OBJECT *ORX__display(ORX_OBJECT *handle, const char *framebuffer);
int ORX_chromaticities_of_framebuffer(const char *name, float out[8]);
ORX_OBJECT *ORX__field_merge(ORX_OBJECT *handle);

ORX_OBJECT *IMP_open(ORX_INFO *image, IMP_REQUEST *request, const char *access);
ORX_TEXTURE *ORX_tex_open(const char *name, int32_t type);
int ORX_tex_close(ORX_TEXTURE *texture);
int32_t ORX_tex_levels(const ORX_TEXTURE *texture);
int32_t ORX_tex_channels(const ORX_TEXTURE *texture);
int ORX_tex_level_size(const ORX_TEXTURE *texture, int32_t level, int32_t *width, int32_t *height);
int ORX_tex_lookup(ORX_TEXTURE *texture, float s, float t, float ds, float dt, int wrap, float *out);
""")
# Status getters a newer library may offer; looked up lazily and tested with
# hasattr, so an older library simply lacks them.
ffi.cdef("""
int32_t ORX_last_status(void);
const char *ORX_last_message(void);
const char *ORX_strerror(int32_t status);
""")

# Named attributes of the images of a record, in libraries that have them
# (orx/attributes.h); looked up lazily like the status getters.
ffi.cdef("""
typedef struct ORX_ATTR {
  const char *name; int32_t image; int32_t type; int32_t count; int32_t reserved; const void *data;
} ORX_ATTR;
int ORX_attr_set(ORX_INFO *info, int32_t image, const char *name, int32_t type, int32_t count,
                 const void *data);
int32_t ORX_attr_count(const ORX_INFO *info, int32_t image);
const ORX_ATTR *ORX_attr_at(const ORX_INFO *info, int32_t image, int32_t index);
""")

_libc = ffi.dlopen(None)
ffi.cdef("void *dlopen(const char *file, int mode); char *dlerror(void);")
RTLD_NOW, RTLD_LOCAL = 2, 0
# Bound now: the first lookup of a symbol goes through dlsym, which would
# clear the error dlerror is asked for.
_dlopen, _dlerror = _libc.dlopen, _libc.dlerror


def _candidates() -> list[Path]:
    """Where the library may be, most specific first."""
    found = []
    env = os.environ.get("ORX_LIBRARY")
    if env:
        return [Path(env)]
    here = Path(__file__).resolve().parent
    # PREFIX/lib/python3/dist-packages/orx -> PREFIX/lib (cmake --install)
    found.append(here.parents[2] / "liborx.so.0")
    # A source checkout: python/orx -> build/<preset>/src
    root = here.parents[1]
    for preset in ("release", "debug", "asan", "bench"):
        found.append(root / "build" / preset / "src" / "liborx.so.0")
    return found


def _open_library():
    # Global: the plug-ins resolve the library's symbols (orx__err, ERR_...)
    # from the process, as they do in a host linked against it.
    flags = ffi.RTLD_NOW | ffi.RTLD_GLOBAL
    errors = []
    for path in _candidates():
        if path.exists():
            return ffi.dlopen(str(path), flags), path
        errors.append(str(path))
    try:
        found = ffi.dlopen("liborx.so.0", flags)
    except OSError as exc:
        raise ImportError("liborx not found (set ORX_LIBRARY); looked at "
                          + ", ".join(errors) + f": {exc}") from None
    return found, _mapped("liborx.so")


def _mapped(name: str) -> Path | None:
    """Where the loader found a library, from the process's memory map."""
    try:
        with open("/proc/self/maps") as maps:
            for line in maps:
                path = line.split(maxsplit=5)[-1].strip()
                if Path(path).name.startswith(name):
                    return Path(path)
    except OSError:
        pass
    return None


lib, library_path = _open_library()
# What this library offers beyond the first release's interface.
HAS_STATUS = hasattr(lib, "ORX_last_status")
HAS_ATTRIBUTES = hasattr(lib, "ORX_attr_count")


def plugin_directories() -> list[Path]:
    """The directories plug-ins are loaded from, in loading order."""
    dirs = [Path(p) for p in os.environ.get("ORX_PLUGIN_PATH", "").split(":") if p]
    if library_path is not None:
        base = library_path.resolve().parent
        dirs += [base / "orx" / "plugins", base.parent / "lib" / "orx" / "plugins"]
    seen, unique = set(), []
    for d in dirs:
        key = d.resolve() if d.exists() else d
        if key not in seen and d.is_dir():
            seen.add(key)
            unique.append(d)
    return unique


# Module handles and names handed to ORX_init; kept for the process's life
# (the registry holds on to the plug-ins' strings).
_modules: list = []
_names: list = []
_cursor = [0]


@ffi.callback("uint8_t(void **, const char **)")
def _enumerate(module, name):
    if _cursor[0] >= len(_modules):
        return 0
    module[0] = _modules[_cursor[0]]
    name[0] = _names[_cursor[0]]
    _cursor[0] += 1
    return 1


def _load_plugins() -> None:
    import logging
    for d in plugin_directories():
        for f in sorted(d.glob("*.so")):
            handle = _dlopen(str(f).encode(), RTLD_NOW | RTLD_LOCAL)
            if handle == ffi.NULL:
                reason = ffi.string(_dlerror()).decode(errors="replace")
                logging.getLogger("orx").warning("cannot load plug-in %s: %s", f, reason)
                continue
            _modules.append(handle)
            _names.append(ffi.new("char[]", f.stem.encode()))


_started = False
_start_lock = threading.Lock()
# Set-up of shared library state (operators consulting the configuration
# databases, the image-process database, field names) runs one thread at a
# time under this lock; image I/O itself runs free.
state_lock = threading.RLock()


def start() -> None:
    """Declare the error handler, load the plug-ins and start the registry once."""
    global _started
    if _started:
        return
    with _start_lock:
        if _started:
            return
        from . import _errors
        _errors.install(lib, ffi)
        _load_plugins()
        _cursor[0] = 0
        if lib.ORX_init(ffi.NULL, _enumerate) != 0:
            raise _errors.error_from_status(int(lib.orx__err), "the library could not start")
        _started = True
