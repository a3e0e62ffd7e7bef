#pragma once

#include <quillcode/QuillCodeFileReader.hpp>
#include <quillcode/QuillCodeFileWriter.hpp>
