/// \file
/// Calls of a board's operations by chance.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <varnox/abstract_handler.h>
#include <varnox/pipeline.h>
#include <varnox/roi.h>

#include "plugin/board.h"
#include "tests/target/notes.h"

/// A pipeline that says which packing it was told.
class tcPipelineNote : public Varnox::tcPipeline {
public:
    explicit tcPipelineNote(sim::tcVirtualHead& head) : m_head(head) {}
    int setPixelPacking(int packing) override;

private:
    sim::tcVirtualHead& m_head;
};

/// One board on a head. What it reports and publishes is noted as well.
class tcRandomBoard : public tcRandomLife<tcRandomBoard> {
public:
    /// Initializes the board.
    tcRandomBoard(tcChance& chance, sim::tcVirtualHead& head);
    ~tcRandomBoard();

    /// Notes what the shadow map, the sensor and the register file hold.
    void finish();

private:
    friend tcRandomLife;
    static const tcOperations kOperations;

    using tcHandlers = std::map<std::string, Varnox::tcAbstractHandler*>;
    void own(const tcHandlers& handlers);

    Varnox::ROI anyRegion();
    std::string regions();
    std::string word();
    std::string command();
    std::string moreHandlers();
    std::string update();
    std::string cameraInfo();
    std::string fault();
    template<class Read>
    std::string pointed(Read read);

    tcPipelineNote m_pipeline;
    Varnox::tc3U5MGXSSensorBoard m_board;
    tcHandlers m_handlers;
    std::vector<std::unique_ptr<Varnox::tcAbstractHandler>> m_owned;
};
