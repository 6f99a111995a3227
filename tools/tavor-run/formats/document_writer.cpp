// SPDX-License-Identifier: MIT
#include "tools/tavor-run/formats/document_writer.h"

#include "tools/common/output_file.h"

namespace tavor_run {

namespace {

class document_writer : public writer {
public:
    document_writer(const std::string &path, document_of how) : output(path), document(how) {}

    void begin(const run_record &record) override { update(record); }
    void result(const run_record &record, const case_result &) override { update(record); }
    void details(const run_record &record, const case_result &) override { update(record); }
    void note(const run_record &record, const std::string &) override { update(record); }
    void end(const run_record &record) override { output.replace(document(record)); }

private:
    void update(const run_record &record)
    {
        output.update([&] { return document(record); });
    }

    tools::output_file output;
    document_of document;
};

} // namespace

std::unique_ptr<writer> make_document_writer(const std::string &path, document_of document)
{
    return std::make_unique<document_writer>(path, document);
}

} // namespace tavor_run
