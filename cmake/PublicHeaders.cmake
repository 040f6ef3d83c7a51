# The headers that callers of the library include: the facade's two, what they include, and the
# platform headers whose classes or functions the library shows (CLIENT_IO_EXPORT).
# tests/checks/public_headers.sh keeps this list true.
set(client_io_public_headers
    client_io/client_io.h
    client_io/client_io_base.h
    client_io/client_io_istreambuf.h
    client_io/client_io_ostreambuf.h
    client_io/image_block_reader.h
    client_io/image_block_writer.h
    client_io/image_client_io_writer.h
    client_io/pool_info.h
    client_io/util.h
    client_io/yajl_buffered_printer.h
    client_io/yajl_client_io_printer.h
    platform/image/image_parser.h
    platform/image/image_records.h
    platform/image/image_writer.h
    platform/json/json_spirit.h
    platform/json/json_value.h
    platform/json/yajl_printer.h
    platform/runtime/base64.h
    platform/runtime/clock.h
    platform/runtime/compression_method.h
    platform/runtime/copy_file.h
    platform/runtime/directory_reader.h
    platform/runtime/encryption_algorithm.h
    platform/runtime/export.h
    platform/runtime/file_system.h
    platform/runtime/fixed_block_file.h
    platform/runtime/io_base.h
    platform/runtime/iso8601.h
    platform/runtime/path.h
    platform/runtime/posix_error.h
    platform/runtime/rate_control_entry.h
    platform/runtime/uri.h)
