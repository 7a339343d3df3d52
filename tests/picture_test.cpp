// What the pictures show, by their .dot form, which is what Graphviz has drawn.
#include "picture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "graphviz.h"
#include "requests.h"
#include "zel_core_term/zel_core_term.h"

namespace {

const std::string red = "color=\"#c62828\"";

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

class picture_test : public testing::Test {
protected:
    picture_test()
    {
        EXPECT_NE(mkdtemp(folder.data()), nullptr); // of its own: tests run at the same time
        vok_cp_sim_reset();
        l2tp_control_ingress_interface = 0;
        EXPECT_EQ(zel_core_term_start(), 0u);
    }

    ~picture_test() override
    {
        zel_core_term_stop();
        vok_cp_sim_reset();
        std::filesystem::remove_all(folder);
    }

    std::string path(const std::string &name) const { return folder + "/" + name; }

    static std::string content(const std::string &file)
    {
        std::ifstream in(file);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    std::string data_plane_dot() const
    {
        const data_plane plane = data_plane::now();
        draw_data_plane(plane, ownership(known), path("plane.dot"));
        return content(path("plane.dot"));
    }

    std::string ladder_dot(const operation_record &operation) const
    {
        draw_ladder(operation, path("ladder.dot"));
        return content(path("ladder.dot"));
    }

    /// The statement of a node or an edge: its name and what is in brackets.
    static std::string statement(const std::string &dot, const std::string &name)
    {
        const std::size_t start = dot.find("\t" + name + "\t[");
        EXPECT_NE(start, std::string::npos) << "no " << name;
        return start == std::string::npos ? "" : dot.substr(start, dot.find("];", start) - start);
    }

    /// The title of the cluster that holds a node.
    static std::string title_around(const std::string &dot, const std::string &node)
    {
        const std::size_t at = dot.find("\t" + node + "\t["), cluster = dot.rfind("subgraph", at);
        const std::size_t title = dot.find("<b>", cluster) + 3;
        return title < at ? dot.substr(title, dot.find("</b>", title) - title) : "none";
    }

    /// The row of a ladder that holds a text.
    static std::string row_with(const std::string &dot, const std::string &text)
    {
        const std::size_t at = dot.find(text);
        EXPECT_NE(at, std::string::npos) << "no " << text;
        return at == std::string::npos
                   ? ""
                   : dot.substr(dot.rfind("<tr>", at), dot.find("</tr>", at) - dot.rfind("<tr>", at));
    }

    void add_udp(std::uint32_t id)
    {
        ASSERT_EQ(request::udp(id, 4)(), 0u);
        const data_plane plane = data_plane::now();
        known.udp_sessions.add(id, {plane.objects.end()[-2].handle, plane.objects.end()[-1].handle});
    }

    static std::string quoted(std::uint64_t handle) { return '"' + handle_text(handle) + '"'; }

    ledger known;
    std::string folder = testing::TempDir() + "zel_pictures.XXXXXX";
};

recorded_call call(const char *operation, std::uint32_t status = 0)
{
    recorded_call made{{.operation = operation, .handle = 0x100000001}, 1500};
    made.status = status;
    made.took_effect = status == 0;
    return made;
}

operation_record operation(std::vector<std::variant<trace_event, recorded_call>> course)
{
    return {"udp add 1", "udp add 1", 3, std::move(course), 0, "success", 2'000'000};
}

TEST_F(picture_test, WhatNobodyOwnsIsRedAndWhatASessionOwnsIsInItsCluster)
{
    add_udp(1);
    add_udp(2);
    known.udp_sessions.remove(2); // the second one's objects are then owned by nobody
    const data_plane plane = data_plane::now();
    const std::string owned = quoted(plane.objects[0].handle), orphan = quoted(plane.objects[2].handle);

    const std::string dot = data_plane_dot();
    EXPECT_EQ(title_around(dot, owned), "UDP session 1");
    EXPECT_EQ(title_around(dot, orphan), "owned by nobody");
    EXPECT_EQ(statement(dot, owned).find(red), std::string::npos);
    EXPECT_NE(statement(dot, orphan).find(red), std::string::npos);
    EXPECT_NE(dot.find("owned by nobody: 2 of the objects, 2 of the bindings"), std::string::npos);

    const std::string uplink = "\"ovlin 0x00100001 (pcep 1, session 1)\":w";
    const std::string owned_binding = statement(dot, quoted(plane.objects[1].handle) + ":e -> " + uplink);
    EXPECT_NE(owned_binding.find("label=<ID2F EGRESS, dscp 46>"), std::string::npos) << owned_binding;
    EXPECT_NE(owned_binding.find("dir=back"), std::string::npos) << owned_binding;
    EXPECT_EQ(owned_binding.find(red), std::string::npos);
    EXPECT_NE(statement(dot, orphan + ":e -> \"ovlin 0x00200005 (pcep 2, session 5)\":w").find(red), std::string::npos);
}

TEST_F(picture_test, SharedAssociationsAndDanglingHandlesAreWithTheirOwners)
{
    for (const std::uint32_t id : {1u, 2u})
        ASSERT_EQ(request::connect(id, 7)(), 0u);
    ASSERT_EQ(request::session_of(1, 100)(), 0u);
    const l2tp_session_entry session = l2tp_session_table[100 - ZEL_CORE_TERM_L2TP_SESSION_ID_MIN];
    for (const auto &binding : data_plane::now().bindings) {
        vok_bind_record record = binding.record;
        if (record.srcFlowHandle == session.ingress_flow_handle) {
            ASSERT_EQ(vok_unbind(VOK_CP_SIM_INSTANCE, &record), 0u);
        }
    }
    ASSERT_EQ(vok_l2tpv3_ingress_flow_delete(VOK_CP_SIM_L2TPV3_FLOW_TYPE, session.ingress_flow_handle), 0u);

    const std::string dot = data_plane_dot();
    const std::string egress = quoted(l2tp_control_table[1].ipv4_egress_association_handle);
    EXPECT_EQ(title_around(dot, egress), "shared by L2TP connection 1, L2TP connection 2");
    EXPECT_EQ(title_around(dot, quoted(l2tp_control_ingress_interface)), "the library");
    EXPECT_EQ(title_around(dot, quoted(session.egress_flow_handle)), "L2TP session 100");
    EXPECT_NE(statement(dot, egress + ":e -> " + quoted(session.egress_flow_handle) + ":w").find("F2F EGRESS, dscp 46"),
              std::string::npos);
    const std::string dangling =
        statement(dot, "\"ingress flow " + handle_text(session.ingress_flow_handle) + " of L2TP session 100\"");
    EXPECT_NE(dangling.find("not there"), std::string::npos) << dangling;
    EXPECT_NE(dangling.find("dashed"), std::string::npos);
}

TEST_F(picture_test, ALargeDataPlaneIsDrawnInPartWithWhatNobodyOwnsFirst)
{
    EXPECT_NE(data_plane_dot().find("the data plane is empty"), std::string::npos);

    for (std::uint32_t id = 1; id <= 1000; ++id)
        add_udp(id);
    known.udp_sessions.remove(900);
    const std::string dot = data_plane_dot();
    EXPECT_NE(dot.find("left out of the picture: 1800 of the objects, 1800 of the bindings"), std::string::npos);
    EXPECT_NE(dot.find("owned by nobody</b>"), std::string::npos);
    EXPECT_NE(dot.find("<b>UDP session 99</b>"), std::string::npos);
    EXPECT_EQ(dot.find("<b>UDP session 100</b>"), std::string::npos);

    vok_cp_sim_reset();
    EXPECT_NE(data_plane_dot().find("left out of the picture: 1798 of these handles"), std::string::npos);
}

TEST_F(picture_test, FailuresAndUndosAreRedInALadder)
{
    recorded_call failed = call("vok_bind", 0x109), undo = call("vok_unbind"), slow = call("vok_slow");
    failed.is_answered = true;
    undo.is_undo = true;
    slow.is_slow = true;
    operation_record record =
        operation({call("vok_ip_ingress_association_create"), failed,
                   trace_event{"tn_zel_term:EXCEPTION", "", "GENERAL", "connect(): no such binding"}, undo, slow});
    std::string dot = ladder_dot(record);
    for (const char *text : {"vok_bind", "no such binding", "injected fault", "connect()", "undo: vok_unbind"})
        EXPECT_PRED2(contains, row_with(dot, text), red) << text;
    for (const char *text : {"association_create", "1.50 µs, slow", "0 (success)"})
        EXPECT_FALSE(contains(row_with(dot, text), red)) << text;
    record.result = 13;
    EXPECT_PRED2(contains, row_with(ladder_dot(record), "13 (success)"), red);
}

TEST_F(picture_test, AStepStandsBesideTheCallThatItAnnounces)
{
    const std::string dot =
        ladder_dot(operation({trace_event{"tn_zel_term:FN_ENTER", "", "", "add()"},
                              trace_event{"tn_zel_term:API_CALL", "", "", "bind_ipv4(): id=1: vok_bind(F2F, INGRESS)"},
                              call("vok_bind"), call("vok_unbind")}));
    EXPECT_PRED2(contains, row_with(dot, "bind_ipv4()<"), "vok_bind");
    EXPECT_FALSE(contains(row_with(dot, "vok_unbind"), "bind_ipv4()"));
    EXPECT_FALSE(contains(dot, "add()"));
}

TEST_F(picture_test, ALongLadderKeepsItsEndsAndItsFailures)
{
    std::vector<std::variant<trace_event, recorded_call>> course(1000, call("vok_bind"));
    course[500] = call("vok_bind", 0x109);
    std::string dot = ladder_dot(operation(course));
    const std::size_t failure = dot.find("no such binding");
    EXPECT_LT(dot.find("425 calls and steps are left out here"), failure);
    EXPECT_LT(failure, dot.find("424 calls and steps are left out here"));

    course.assign(1000, call("vok_bind", 0x109));
    dot = ladder_dot(operation(course));
    EXPECT_PRED2(contains, dot, "700 calls and steps are left out here");
}

TEST_F(picture_test, TextsFromElsewhereAreShownAsTheyAre)
{
    EXPECT_EQ(graphviz::escaped("a <b> & \"c\" \\N"), "a &lt;b&gt; &amp; &quot;c&quot; \\&#8203;N");
    EXPECT_EQ(graphviz::escaped("µ \xff\x01\tend\xe2\x82"), "µ ?  end??");

    operation_record record = operation({});
    record.line = "udp add 1 --local [::1]:1 <\"\\N\\l & \xff> ";
    for (int i = 0; i < 1000; ++i)
        record.line += "€";
    const std::string dot = ladder_dot(record);
    EXPECT_NE(dot.find("--local [::1]:1 &lt;&quot;\\&#8203;N\\&#8203;l &amp; ?&gt;"), std::string::npos);
    EXPECT_FALSE(contains(dot, "€?")) << "a part of a character";
    draw_ladder(record, path("ladder.svg"));
    EXPECT_PRED2(contains, content(path("ladder.svg")), "[::1]:1 &lt;&quot;\\\u200bN\\\u200bl &amp; ?&gt;");
}

TEST_F(picture_test, TheExtensionNamesTheFormat)
{
    const operation_record record = operation({call("vok_bind")});
    for (const auto &[name, start] : {std::pair("a.svg", "<?xml"), {"a.png", "\x89PNG"}, {"a.pdf", "%PDF"}}) {
        draw_ladder(record, path(name));
        EXPECT_TRUE(content(path(name)).starts_with(start)) << name;
    }
}

TEST_F(picture_test, WhatCannotBeWrittenIsRefusedAndLeavesNoFile)
{
    const auto error = [](const std::string &file) -> std::string {
        try {
            draw_ladder(operation({}), file);
        } catch (const std::runtime_error &wrong) {
            return wrong.what();
        }
        return "none";
    };
    for (const char *name : {"a.gif", "a", "svg", ".svg", "a.SVG", "a.svg.bak"})
        EXPECT_EQ(error(path(name)),
                  '\'' + path(name) + "' is not named as a picture: expected .svg, .png, .pdf or .dot at its end");
    EXPECT_EQ(error(path("no/a.svg")), path("no/a.svg") + ": cannot be written: No such file or directory");
    std::filesystem::create_directory(path("folder.svg"));
    EXPECT_EQ(error(path("folder.svg")), path("folder.svg") + ": cannot be written: Is a directory");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);
}

} // namespace
